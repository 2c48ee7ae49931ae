#!/usr/bin/env python3
"""Times Python's email package on a folder of .eml files, one process, files
already in memory. Two ways of reading, both to a plain body:

  default   email.policy.default: headers decoded, body via get_body().get_content()
  compat32  the legacy policy: the first text/plain (else text/html) payload,
            transfer-decoded and decoded from its charset

Times are CPU time of this process, as the C++ side reports, so that other
work on the machine does not skew the comparison. Prints one JSON object per
policy: {"name", "median_s", "messages", "bytes"}.

    mail_baseline.py CORPUS_DIR [RUNS]
"""
import email
import email.policy
import json
import os
import statistics
import sys
import time


def body_default(data):
    msg = email.message_from_bytes(data, policy=email.policy.default)
    for name in ("subject", "from", "to", "cc", "date"):
        msg.get(name)
    part = msg.get_body(preferencelist=("plain", "html"))
    return part.get_content() if part is not None else ""


def body_compat32(data):
    msg = email.message_from_bytes(data)
    for part in msg.walk():
        if part.get_content_type() in ("text/plain", "text/html") and not part.get_filename():
            payload = part.get_payload(decode=True) or b""
            return payload.decode(part.get_content_charset() or "utf-8", "replace")
    return ""


def main():
    folder = sys.argv[1]
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 5
    names = sorted(n for n in os.listdir(folder) if n.endswith(".eml"))
    files = []
    for name in names:
        with open(os.path.join(folder, name), "rb") as f:
            files.append(f.read())
    total = sum(len(f) for f in files)
    for label, read in (("python email (policy.default)", body_default), ("python email (compat32)", body_compat32)):
        times = []
        for _ in range(runs):
            start = time.process_time()
            for data in files:
                read(data)
            times.append(time.process_time() - start)
        print(json.dumps({"name": label, "median_s": statistics.median(times), "messages": len(files), "bytes": total}))


if __name__ == "__main__":
    main()
