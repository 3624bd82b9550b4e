// The user programs: qx-useradd, qx-usershow, qx-userdel, qx-userlist.
#include "qxadm.hpp"

namespace qxadm {

// qx-useradd NAME: the typical request of an administrative program.
int user_add(const Args &a) {
    need(a, a.count == 1);
    char display[kDisplaySize];
    under_lock(a, [&] {
        char key[kPackedSize];
        new_user(a.arg(1), NameForm::kTyped, key, display);
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
    return print_users(NameForm::kTyped);
}

}  // namespace qxadm
