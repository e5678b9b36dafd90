"""pipe.py DELAY_MS UP DOWN COMMAND...

Stands between a program and a command that it talks to over pipes: passes each byte on so many
milliseconds later, and ends when it has passed UP bytes to or DOWN bytes from the command (-1: all).
"""
import os
import queue
import subprocess
import sys
import threading
import time

delay, up, down = float(sys.argv[1]) / 1000, *map(int, sys.argv[2:4])
command = subprocess.Popen(sys.argv[4:], stdin=subprocess.PIPE, stdout=subprocess.PIPE)


def take(source, line):
    while data := os.read(source, 1 << 16):
        line.put((time.monotonic() + delay, data))
    line.put((time.monotonic() + delay, b""))


def give(line, target, left):
    while True:
        due, data = line.get()
        time.sleep(max(0, due - time.monotonic()))
        if left >= 0:
            data, left = data[:left], left - min(len(data), left)
        if data:
            os.write(target, data)
        if not data or left == 0:
            os._exit(0)


for source, target, most in [(0, command.stdin.fileno(), up), (command.stdout.fileno(), 1, down)]:
    line = queue.Queue()
    threading.Thread(target=take, args=(source, line)).start()
    threading.Thread(target=give, args=(line, target, most)).start()
