"""Python's Stream, from standard input to standard output: python3 stream.py ROOMS"""

import itertools
import os
import sys

import numpy as np

import jurn

rooms = [jurn.read_response(os.path.join(sys.argv[1], name + ".wav"), 16000) for name in ("hall", "street")]
filters = itertools.cycle([jurn.eq("PK 1k 6 Q 1", 16000), [(0, 0, rooms[0])], jurn.eq("LS 200 -4; HP 30", 16000), 24,
                           [(0, 0, rooms[1])], jurn.Design.of_sos(jurn.eq("HS 5000 3", 16000).sos)])
stream = jurn.Stream(next(filters), rate=16000, taps=16000)
for count in itertools.count(1):
    data = sys.stdin.buffer.read(6400 * 4)
    if len(data) < 6400 * 4:
        break
    if count % 2 == 0:
        stream.change(next(filters), fade=1600)
    sys.stdout.buffer.write(stream.process(np.frombuffer(data, np.float32)).tobytes())
    sys.stdout.buffer.flush()
