// The user programs: qx-useradd, qx-usershow, qx-userdel, qx-userlist.
#include <cstring>

#include "qxadm.hpp"

namespace qxadm {
namespace {

constexpr const char kSourceFile[] = "programs/users";

// A user's listing names the user again: its display text, typed back,
// gives the same key. So every line that qx-userlist shows is accepted by
// qx-usershow and qx-userdel, and two users never list alike.
void check_listable(const char *display, const char *key) {
    char again[kPackedSize];
    if (fails([&] { user_key(display, again); }) || std::strcmp(again, key) != 0) QX_RAISE(kNotListable);
}

}  // namespace

// qx-useradd NAME: the typical request of an administrative program.
int user_add(const Args &a) {
    need(a, a.count == 1);
    char display[kDisplaySize];
    under_lock(a, [&] {
        char key[kPackedSize];
        user_key(a.arg(1), key);
        cl_ValidateORNFields(key, 3);
        copy_display(cl_FormatFullName(key, charset()), display);
        check_listable(display, key);
        directory_add(key, display);
        note_done("the user was added all the same");
    });
    std::printf("Added: %s\n", display);
    return 0;
}

// qx-usershow NAME
int user_show(const Args &a) {
    need(a, a.count == 1);
    char key[kPackedSize];
    user_key(a.arg(1), key);
    char display[kDisplaySize];
    directory_find(key, display);
    std::printf("%s\n", display);
    return 0;
}

// qx-userdel NAME
int user_delete(const Args &a) {
    need(a, a.count == 1);
    char display[kDisplaySize];
    under_lock(a, [&] {
        char key[kPackedSize];
        user_key(a.arg(1), key);
        directory_delete(key, display);
        note_done("the user was deleted all the same");
    });
    std::printf("Deleted: %s\n", display);
    return 0;
}

// qx-userlist
int user_list(const Args &a) {
    need(a, a.count == 0);
    directory_list(stdout);
    return 0;
}

}  // namespace qxadm
