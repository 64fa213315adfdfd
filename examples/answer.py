#!/usr/bin/env python3
"""Stands in for the other side: answers each signal of one port with its bytes reversed, on another one.

Usage: answer.py FROM TO   (keltipc must be in PATH)
"""
import json
import subprocess
import sys

source, sink = sys.argv[1:]
dump = subprocess.Popen(["keltipc", "dump", "--json", source], stdout=subprocess.PIPE, text=True)
send = subprocess.Popen(["keltipc", "send", sink, "-"], stdin=subprocess.PIPE, text=True)
print("start 0=1", file=send.stdin, flush=True)
for line in dump.stdout:
    signal = json.loads(line)
    if "fault" in signal:
        continue  # Something was lost or is wrong.
    answer = bytes.fromhex(signal["data"])[::-1]
    print(f"{signal['id']}#{answer.hex()}", file=send.stdin, flush=True)
send.stdin.close()
sys.exit(dump.wait() or send.wait())
