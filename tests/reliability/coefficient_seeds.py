"""Files for the fuzzer of coefficient files to start from: coefficient_seeds.py FOLDER.

Those that every front end is tested with, what was found before, and headers of exported files. The
first two bytes choose what is wanted and the format, see fuzz_coefficients.cpp.
"""

import os
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "front_ends"))
from files_of_everyone import READ, REFUSED, ROOMS, WARNED

MOST = 1498  # bytes that the fuzzer tries behind the first two
WITH_RATE = 128 | 3  # and any kind
FOUND = (
    b"gain = 1e30\nsos = [1e20 0 0 1 0 0; 1 0 0 1 0 0]\n",  # beyond a float once it is multiplied
    b"gain = 6e20\nnum = 1e21\nden = [1 0.5]\n",
    b"k = 1e38\nz = [0.5 0.5]\np = [0.1 0.1]\nz2 = 1e30\n",
    b"// prepared: sections, int16\nstatic const float f_sections[1][6] = {{1.0f, 0.0f, 0.0f, 1.0f, "
    b"0.5f, 0.2f}};\nstatic inline void f_setup(Filter_ID* f, int n) { f->n = 2; }\n",
    b"# prepared: iir, double\n1 2 1 0\n1 0.5 0 0\n",
    b"Preamp: -3 dB\nChannel: L\nFilter 1: ON PK Fc 1000 Hz Gain 6 dB Q 1\nChannel: R 2\n",
    b"* Impulse Response data saved by REW\n2.0833333E-5 // Sample interval\n* Data start\n1\n",
    b"biquad1,\nb0=1.0,\nb1=0.5,\nb2=0.0,\na1=0.5,\na2=0.1\n",
)
MEASURED = (  # read as measurements, by another bit of the first byte
    b'* Freq(Hz) SPL(dB) Phase(degrees)\n20.5 75.1 -3\n25 76 4\n"100" 77\n1e3, 70\n20000;71\n',
    b"frequency,raw\n20,5\n200,6\n1000,0\n2000,-3\n20000,1\n",
)


def contents(files):
    with tempfile.TemporaryDirectory() as folder:
        for name, *_, content in files:
            path = os.path.join(folder, name)
            if callable(content):
                content(path)
                with open(path, "rb") as file:
                    yield file.read()
            else:
                yield content.encode()


def main(folder):
    os.makedirs(folder, exist_ok=True)
    texts = [*FOUND, *contents(READ), *contents(REFUSED), *contents(WARNED), *contents(ROOMS)]
    for i, text in enumerate(texts):
        if len(text) <= MOST:
            with open(os.path.join(folder, f"seed{i:03}"), "wb") as file:
                file.write(bytes([WITH_RATE, 0]) + text)
    for i, text in enumerate(MEASURED):
        with open(os.path.join(folder, f"measured{i}"), "wb") as file:
            file.write(bytes([32, 0]) + text)


if __name__ == "__main__":
    main(sys.argv[1])
