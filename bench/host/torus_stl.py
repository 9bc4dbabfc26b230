# Writes the benchmarks' 1,000,000-triangle generated mesh (bench::torus(1000, 500) in
# bench/benchmeshes.h), scaled by 20 to fit a printer's bed in mm, as a binary STL, so that the
# host's figures are measured on the same geometry as the libraries':
#   python3 bench/host/torus_stl.py torus1m.stl
#   build/release/bin/printprep render torus1m.stl -o torus.png --size 1920x1080 --timings
import math, struct, sys
around, tube, scale = 1000, 500, 20.0
v = []
for i in range(around):
    u = 2 * math.pi * i / around
    for j in range(tube):
        w = 2 * math.pi * j / tube
        r = 0.7 + 0.02 * math.sin(13 * u) * math.cos(7 * w)
        v.append(((2 + r * math.cos(w)) * math.cos(u) * scale, (2 + r * math.cos(w)) * math.sin(u) * scale, r * math.sin(w) * scale))
at = lambda i, j: (i % around) * tube + (j % tube)
out = bytearray(b'\0' * 80) + struct.pack('<I', 2 * around * tube)
pack = struct.Struct('<12fH').pack
for i in range(around):
    for j in range(tube):
        a, b, c, d = v[at(i, j)], v[at(i + 1, j)], v[at(i + 1, j + 1)], v[at(i, j + 1)]
        out += pack(0, 0, 0, *a, *b, *c, 0)
        out += pack(0, 0, 0, *a, *c, *d, 0)
open(sys.argv[1], 'wb').write(out)
