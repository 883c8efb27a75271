"""Runs a program in a scratch folder; its exit status is this one's."""

import subprocess
import sys
import tempfile

with tempfile.TemporaryDirectory() as folder:
    sys.exit(subprocess.run(sys.argv[1:], cwd=folder, check=False).returncode)
