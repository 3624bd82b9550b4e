#!/usr/bin/env python3
"""Writes N unique, valid, realistic user names, one a line, in the syntax of
qx-useradd: a personal name (given name, initials, surname, now and then a
generation qualifier), one to four organizational units, and attributes
(organization, country, management domains; UTF-8 spellings of the surname
or given name for about one name in eight).

    gen-names.py N [SEED] > names.txt

The same N and SEED give the same lines. Each line is a different user: a
line drawn twice is drawn again, and no two different lines name the same
user (every line spells its fields in one order).
"""
import random
import sys

GIVEN = """Aaron Abigail Adam Adrian Agnes Alan Albert Alice Amir Amy Andrew Angela Anna Anton
Arthur Aylin Barbara Ben Bernard Beth Boris Brian Carla Carlos Caroline Chen Chloe Claire Colin Daniel
David Diana Dmitri Edward Elena Elif Emily Emma Eric Eva Fatima Felix Fiona Frank George Grace Hana
Hannah Harry Hassan Helen Henry Ian Ines Irene Isaac Ivan James Jane Javier Jean John Jonas Julia Karen
Kenji Kevin Laura Leo Lina Louis Lucy Mara Marco Maria Mark Martin Mary Matteo Mei Michael Mina Nadia
Nina Noah Olga Omar Oscar Paul Peter Priya Rachel Ravi Rosa Ruth Sam Sara Sophie Stefan Susan Tom
Vera Victor Wei Yuki Zoe""".split()
SURNAMES = """Abbott Acosta Adams Ahmed Alvarez Andersen Arnold Bailey Baker Becker Bell Berg Bianchi
Black Brooks Brown Bruno Burke Campbell Carter Castro Chang Chen Clark Cohen Collins Cook Cooper Costa
Cruz Davies Dias Dubois Duncan Edwards Ellis Evans Fischer Fleming Ford Foster Fox Garcia Gill Gomez
Gordon Graham Grant Gray Green Gruber Hall Hansen Harris Hayes Hill Hoffmann Hughes Hunt Ito Jansen
Jensen Johnson Jones Kaur Keller Kelly Kim Klein Koch Kowalski Kumar Lambert Lang Larsen Lee Lewis Li
Lopez Martin Meyer Miller Mitchell Moore Morales Morgan Muller Murphy Nakamura Nguyen Nielsen Novak
Olsen Owen Park Patel Perez Peters Petrov Popescu Price Quinn Reed Reyes Richter Rivera Roberts Rossi
Russo Santos Sato Schmidt Schneider Scott Shah Silva Singh Smith Suzuki Tan Taylor Thomas Torres Turner
Wagner Walker Wang Ward Watson Weber White Wilson Wong Wright Yamamoto Young Zhang Zimmermann""".split()
# Surnames with a UTF-8 spelling, given as utf8Surname.
UTF8 = {"Muller": "Müller", "Jansen": "Jänsen", "Gomez": "Gómez", "Perez": "Pérez", "Lopez": "López",
        "Novak": "Novák", "Dubois": "Duboïs", "Kowalski": "Kowalskí", "Petrov": "Петров",
        "Nakamura": "中村", "Popescu": "Popescu-Ștefan", "Zhang": "张"}
INITIALS = [""] + [c + "." for c in "ABCDEFGHJKLMNPRSTW"] + [a + "." + b + "." for a in "AJM" for b in "BDRT"]
GENERATIONS = [""] * 15 + ["Jr.", "Sr.", "II.", "III.", "IV."]
UNITS1 = """Sales Support Research Finance Legal Marketing Operations Engineering Purchasing Logistics
Security Training Quality Facilities Design Press Audit Treasury Payroll Recruiting""".split()
UNITS2 = """London Paris Berlin Madrid Rome Vienna Zurich Oslo Dublin Lisbon Prague Warsaw Athens
Helsinki Brussels Amsterdam Geneva Munich Milan Lyon Boston Chicago Toronto Tokyo Sydney Singapore
Mumbai Seoul Austin Denver""".split()
UNITS3 = """Europe Americas Asia_Pacific Nordics Iberia Benelux DACH Middle_East""".split()
UNITS4 = """HQ Branch Lab Plant Depot""".split()
ORGS = ["", "", "Acme", "Globex", "Initech", "Umbrella", "Stark Industries", "Wayne Enterprises"]
COUNTRIES = ["", "GB", "DE", "FR", "US", "JP", "IT", "ES", "NL"]
DOMAINS = ["", "", "", "", "admd=Mail", "admd=Mail/prmd=Corp", "admd=TeleNet"]

UTF8_GIVEN = {"Zoe": "Zoë", "Chloe": "Chloë", "Ines": "Inés", "Elena": "Eléna", "Olga": "Ольга",
              "Kenji": "健二", "Mei": "美", "Hana": "Hana̋", "Jonas": "Jonàs", "Rosa": "Rósa"}


def name(r):
    given, surname = r.choice(GIVEN), r.choice(SURNAMES)
    person = " ".join(p for p in (given, r.choice(INITIALS), surname, r.choice(GENERATIONS)) if p)
    units = [r.choice(UNITS1), r.choice(UNITS2), r.choice(UNITS3), r.choice(UNITS4)][:r.choice([1, 2, 2, 3, 4])]
    attrs = []
    org, country, domains = r.choice(ORGS), r.choice(COUNTRIES), r.choice(DOMAINS)
    if org:
        attrs.append("organization=" + org)
    if domains and not country:  # management domains need a country
        country = "GB"
    if country:
        attrs.append("country=" + country)
    if domains:
        attrs.append(domains)
    if r.random() < 0.125:
        if surname in UTF8:
            attrs.append("utf8Surname=" + UTF8[surname])
        elif given in UTF8_GIVEN:
            attrs.append("utf8GivenName=" + UTF8_GIVEN[given])
    return "/".join([person, ",".join(units)] + attrs)


def main():
    n = int(sys.argv[1])
    r = random.Random(int(sys.argv[2]) if len(sys.argv) > 2 else 1)
    seen = set()
    lines = []
    while len(seen) < n:
        line = name(r)
        if line in seen:
            continue
        seen.add(line)
        lines.append(line)
        if len(lines) == 10000:
            sys.stdout.write("\n".join(lines) + "\n")
            lines = []
    if lines:
        sys.stdout.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
