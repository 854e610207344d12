#!/usr/bin/python3
"""Measures how this CPU overlaps 512-bit operations of different kinds.

usage: pipe_mix.py [MIX ...]

Each MIX is a string of letters, one 512-bit operation each, repeated in a
loop on 12 independent registers: the loop is written in assembly so that
the compiler cannot reorder, fold or strength-reduce the operations. With
no MIX, the set that docs/performance.md quotes for the full-width kernel.

  M vpmaddwd   D vpdpwssd   L vpmulld   U vpmaddubsw
  S vpermt2w   B vpermt2b   Q vpermb    P vpackuswb
  H vpsrld     A vpaddd     X vpandd    V vmovdqa64

Prints cycles per loop and per operation, assuming the core clock given by
--ghz (default 3.65). Needs g++ and a CPU with AVX-512 VBMI and VNNI.
"""
import os
import subprocess
import sys
import tempfile

OPERATIONS = {
    "M": "vpmaddwd %zmm12, {r}, {r}",
    "D": "vpdpwssd %zmm12, %zmm13, {r}",
    "L": "vpmulld %zmm12, {r}, {r}",
    "U": "vpmaddubsw %zmm12, {r}, {r}",
    "S": "vpermt2w %zmm13, %zmm14, {r}",
    "B": "vpermt2b %zmm13, %zmm14, {r}",
    "Q": "vpermb %zmm13, %zmm14, {r}",
    "P": "vpackuswb %zmm13, {r}, {r}",
    "H": "vpsrld $3, {r}, {r}",
    "A": "vpaddd %zmm12, {r}, {r}",
    "X": "vpandd %zmm12, {r}, {r}",
    "V": "vmovdqa64 %zmm13, {r}",
}

# Single kinds, pairs, and the multiply-add beside each kind of shuffle.
DEFAULT_MIXES = ["M" * 12, "D" * 12, "L" * 12, "S" * 12, "B" * 12, "Q" * 12, "P" * 12, "H" * 12,
                 "A" * 12, "MS" * 6, "MH" * 6, "DS" * 6, "DB" * 6, "DQ" * 6, "DP" * 6,
                 "DSS" * 4, "MSS" * 4, "DQQ" * 4]

REGISTERS = 12  # zmm12 to zmm14 hold the operands


def loop_source(index, mix):
    body = " ".join('"%s\\n\\t"' % OPERATIONS[c].format(r="%%zmm%d" % (i % REGISTERS)).replace("%", "%%")
                    for i, c in enumerate(mix))
    return """
static double mix%d(long n)
{
    const auto t0 = std::chrono::steady_clock::now();
    __asm__ volatile("vpxord %%%%zmm12, %%%%zmm12, %%%%zmm12\\n\\t"
                     "vpternlogd $0xff, %%%%zmm13, %%%%zmm13, %%%%zmm13\\n\\t"
                     "vpxord %%%%zmm14, %%%%zmm14, %%%%zmm14\\n\\t"
                     "1:\\n\\t" %s "dec %%0\\n\\tjnz 1b"
                     : "+r"(n) : : "memory", "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6",
                       "xmm7", "xmm8", "xmm9", "xmm10", "xmm11", "xmm12", "xmm13", "xmm14");
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}
""" % (index, body)


def program(mixes, ghz):
    parts = ["#include <algorithm>", "#include <chrono>", "#include <cstdio>"]
    parts += [loop_source(i, m) for i, m in enumerate(mixes)]
    parts.append("int main()\n{\n    const long n = 2000000;")
    for i, m in enumerate(mixes):
        parts.append(
            '    { double best = 1e30; for (int r = 0; r < 7; ++r) best = std::min(best, mix%d(n));\n'
            '      const double cycles = best * %f / n;\n'
            '      std::printf("%%-24s %%7.2f cycles a loop %%6.2f an operation\\n", "%s", cycles, cycles / %d); }'
            % (i, ghz * 1e9, m, len(m)))
    parts.append("}")
    return "\n".join(parts) + "\n"


def main(argv):
    ghz = 3.65
    mixes = []
    for a in argv[1:]:
        if a.startswith("--ghz="):
            ghz = float(a.split("=", 1)[1])
        elif a in ("-h", "--help"):
            print(__doc__.strip())
            return 0
        elif a and all(c in OPERATIONS for c in a):
            mixes.append(a)
        else:
            print("pipe_mix.py: '%s' is not a mix of %s" % (a, "".join(OPERATIONS)), file=sys.stderr)
            return 2
    with tempfile.TemporaryDirectory() as scratch:
        source, binary = os.path.join(scratch, "mix.cpp"), os.path.join(scratch, "mix")
        with open(source, "w") as f:
            f.write(program(mixes or DEFAULT_MIXES, ghz))
        subprocess.run(["g++", "-O2", "-o", binary, source], check=True)
        return subprocess.run([binary]).returncode


if __name__ == "__main__":
    sys.exit(main(sys.argv))
