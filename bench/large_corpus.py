#!/usr/bin/env python3
"""Writes 100 MB scripts from the shared harness' generated ones: copies of
each script one after another, every copy under languages of its own (so that
no resource is defined twice). Usage: large_corpus.py CORPUS OUT [MB]"""
import os
import re
import shutil
import sys

LANGUAGE = re.compile(r'^LANGUAGE\s+(\w+)\s*,\s*(\w+)', re.M)


def copies_of(script, out, megabytes):
    text = open(script, encoding='latin-1').read()
    head = ''.join(l for l in text.splitlines(True) if l.startswith('#include'))
    body = ''.join(l for l in text.splitlines(True) if not l.startswith('#include'))
    count = max(1, round(megabytes * 1e6 / len(body)))
    if count > 63:
        sys.exit('large_corpus.py: more copies than sublanguages')
    with open(out, 'w', encoding='latin-1') as f:
        f.write(head)
        for k in range(count):
            seen = {}

            def own(m):
                n = seen.setdefault(m.group(0), len(seen))
                return 'LANGUAGE %d, %d' % (2 + n, 1 + k)

            f.write(LANGUAGE.sub(own, body))


def main():
    corpus, out = sys.argv[1], sys.argv[2]
    megabytes = float(sys.argv[3]) if len(sys.argv) > 3 else 100
    os.makedirs(out, exist_ok=True)
    for name in os.listdir(corpus):
        if os.path.isfile(os.path.join(corpus, name)) and not name.endswith('.rc'):
            shutil.copy(os.path.join(corpus, name), out)
    for name in ('strings', 'dialogs', 'mixed'):
        copies_of(os.path.join(corpus, name + '.rc'), os.path.join(out, name + '.rc'), megabytes)


main()
