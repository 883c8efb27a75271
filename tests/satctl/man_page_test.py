"""usage: man_page_test.py GROFF PAGE: the formatter has nothing to say about the page, and it has the usual sections."""

import re
import subprocess
import sys

groff, page = sys.argv[1:]
done = subprocess.run([groff, "-man", "-Tutf8", "-ww", "-rLL=100n", page], capture_output=True, check=False)
if done.returncode != 0 or done.stderr:
    sys.exit("%s: %s" % (page, done.stderr.decode(errors="replace")))
shown = re.sub(r"\x1b\[[0-9;]*m|.\x08", "", done.stdout.decode())
missing = [section for section in ("NAME", "DESCRIPTION", "SEE ALSO") if not re.search(r"(?m)^%s$" % section, shown)]
if missing:
    sys.exit("%s: without %s" % (page, ", ".join(missing)))
if max(len(line) for line in shown.splitlines()) > 110:
    sys.exit("%s: a line is too wide" % page)
