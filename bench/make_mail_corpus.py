#!/usr/bin/env python3
"""Writes a corpus of generated .eml files for the mail benchmark.

The mix follows a working inbox: plain notes and threads, multipart/alternative
mail with an HTML twin, HTML-only newsletters, CI and ticket notices, mail with
small attachments, Latin-1 quoted-printable and UTF-8 base64 bodies, and a share
of one-time-password and bank notices for the prefilter. The same seed always
gives the same files.

    make_mail_corpus.py OUT_DIR [COUNT]
"""
import base64
import os
import quopri
import random
import sys

WORDS = ("deploy review migration sign-off release build tests failing green rollback "
         "schedule meeting agenda invoice contract design draft numbers quarter budget "
         "latency incident customer report feedback launch staging production cache "
         "database index query thanks please today tomorrow friday before after").split()
NAMES = ["Priya Raman", "Marco Bellini", "Lena Fischer", "Sam Okafor", "Ana Silva",
         "Tomas Novak", "Grace Kim", "Hannah Lee", "Olga Ivanova", "Jürgen Müller"]


def sentence(rng, n):
    words = [rng.choice(WORDS) for _ in range(n)]
    return " ".join(words).capitalize() + "."


def paragraph(rng, sentences):
    return " ".join(sentence(rng, rng.randint(6, 16)) for _ in range(sentences))


def body_text(rng):
    return "\n\n".join(paragraph(rng, rng.randint(2, 6)) for _ in range(rng.randint(2, 8))) + "\n"


def headers(rng, i, subject, extra=""):
    name = rng.choice(NAMES)
    user = name.split()[0].lower().replace("ü", "u")
    refs = ""
    if i % 4 == 3:
        refs = f"In-Reply-To: <m{i - 1}@corpus.example>\nReferences: <m{i - 3}@corpus.example> <m{i - 1}@corpus.example>\n"
    return (f"From: {name} <{user}@corpus.example>\n"
            f"To: Dev Rao <dev@quibly.example>\n"
            + (f"Cc: ops@corpus.example, \"Lead, Team\" <lead@corpus.example>\n" if i % 3 == 0 else "")
            + f"Subject: {subject}\n"
            f"Date: Sat, {1 + i % 28} Nov 2026 {i % 24:02d}:{i % 60:02d}:00 +0000\n"
            f"Message-ID: <m{i}@corpus.example>\n" + refs + extra)


def plain(rng, i):
    return headers(rng, i, sentence(rng, 6), "Content-Type: text/plain; charset=utf-8\n") + "\n" + body_text(rng)


def alternative(rng, i):
    text = body_text(rng)
    html = "<html><head><style>p{margin:0}</style></head><body>" + "".join(
        f"<p>{p}</p>" for p in text.split("\n\n")) + "</body></html>"
    return (headers(rng, i, sentence(rng, 5), "MIME-Version: 1.0\nContent-Type: multipart/alternative; boundary=\"alt-%d\"\n" % i)
            + f"\n--alt-{i}\nContent-Type: text/plain; charset=utf-8\n\n{text}\n"
            f"--alt-{i}\nContent-Type: text/html; charset=utf-8\n\n{html}\n--alt-{i}--\n")


def newsletter(rng, i):
    html = "<html><body>" + "".join(f"<div class=\"item\"><h2>{sentence(rng, 4)}</h2><p>{paragraph(rng, 3)} &amp; more</p></div>"
                                    for _ in range(rng.randint(3, 8))) + "</body></html>"
    return (headers(rng, i, "Weekly digest: " + sentence(rng, 4),
                    "List-Id: <digest.corpus.example>\nList-Unsubscribe: <https://corpus.example/u>\nPrecedence: bulk\n"
                    "Content-Type: text/html; charset=utf-8\n") + "\n" + html + "\n")


def notification(rng, i):
    return (headers(rng, i, f"Build #{i} failed on main", "Auto-Submitted: auto-generated\nContent-Type: text/plain\n")
            + f"\nBuild #{i} failed at step test.\n{sentence(rng, 10)}\n")


def attachment(rng, i):
    blob = base64.encodebytes(rng.randbytes(rng.randint(2000, 12000))).decode()
    return (headers(rng, i, "Files attached: " + sentence(rng, 3), f"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=mix{i}\n")
            + f"\n--mix{i}\nContent-Type: text/plain; charset=utf-8\n\n{paragraph(rng, 3)}\n"
            f"--mix{i}\nContent-Type: application/pdf; name=report.pdf\nContent-Disposition: attachment; filename=report.pdf\n"
            f"Content-Transfer-Encoding: base64\n\n{blob}--mix{i}--\n")


def latin1(rng, i):
    text = "Grüße, " + body_text(rng) + "Schöne Woche!\n"
    encoded = quopri.encodestring(text.encode("latin-1")).decode("ascii")
    return (headers(rng, i, "=?ISO-8859-1?Q?Gr=FC=DFe_und_Zahlen?=",
                    "Content-Type: text/plain; charset=ISO-8859-1\nContent-Transfer-Encoding: quoted-printable\n")
            + "\n" + encoded)


def utf8_base64(rng, i):
    text = "नमस्ते, " + body_text(rng)
    encoded = base64.encodebytes(text.encode()).decode()
    return (headers(rng, i, "=?UTF-8?B?" + base64.b64encode("बैठक का सारांश".encode()).decode() + "?=",
                    "Content-Type: text/plain; charset=UTF-8\nContent-Transfer-Encoding: base64\n")
            + "\n" + encoded)


def otp(rng, i):
    return (headers(rng, i, "Your verification code", "Content-Type: text/plain\n")
            + f"\nYour verification code is {rng.randint(100000, 999999)}. It expires in 10 minutes.\n")


def bank(rng, i):
    return (f"From: Alerts <alerts@axisbank.example>\nTo: dev@quibly.example\nSubject: Debit alert\n"
            f"Date: Sat, 21 Nov 2026 10:00:00 +0530\nMessage-ID: <b{i}@axisbank.example>\n\n"
            f"Rs. {rng.randint(100, 99999):,}.00 has been debited from your A/c XX{rng.randint(1000, 9999)}.\n")


KINDS = [(plain, 30), (alternative, 20), (newsletter, 12), (notification, 12), (attachment, 8),
         (latin1, 6), (utf8_base64, 6), (otp, 3), (bank, 3)]


def main():
    out = sys.argv[1]
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 10000
    os.makedirs(out, exist_ok=True)
    rng = random.Random(20261121)
    kinds = [kind for kind, weight in KINDS for _ in range(weight)]
    for i in range(count):
        text = rng.choice(kinds)(rng, i)
        with open(os.path.join(out, f"{i:05d}.eml"), "wb") as f:
            f.write(text.replace("\n", "\r\n").encode("utf-8"))


if __name__ == "__main__":
    main()
