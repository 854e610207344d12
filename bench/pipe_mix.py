#!/usr/bin/python3
"""Measures how this CPU overlaps 512-bit operations of different kinds.

usage: pipe_mix.py [--ghz=GHZ] [MIX ...]
       pipe_mix.py -h | --help

Each MIX is a string of letters, one 512-bit operation each, run in a loop
written in assembly, so that the compiler cannot reorder, fold or
strength-reduce the operations. The mix is repeated until it fills 24
registers, each operation writing a register of its own; only the
operations that also read their destination (D, S, B) chain from one
iteration to the next, so the loop measures throughput, not latency. With
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

# zmm12 to zmm14 hold the operands; {r} is the operation's own register.
OPERATIONS = {
    "M": "vpmaddwd %zmm12, %zmm13, {r}",
    "D": "vpdpwssd %zmm12, %zmm13, {r}",
    "L": "vpmulld %zmm12, %zmm13, {r}",
    "U": "vpmaddubsw %zmm12, %zmm13, {r}",
    "S": "vpermt2w %zmm13, %zmm14, {r}",
    "B": "vpermt2b %zmm13, %zmm14, {r}",
    "Q": "vpermb %zmm13, %zmm14, {r}",
    "P": "vpackuswb %zmm13, %zmm12, {r}",
    "H": "vpsrld $3, %zmm13, {r}",
    "A": "vpaddd %zmm12, %zmm13, {r}",
    "X": "vpandd %zmm12, %zmm13, {r}",
    "V": "vmovdqa64 %zmm13, {r}",
}

# Single kinds, pairs, the multiply-add beside each kind of shuffle, and the
# full-width kernel's 27 operations with its five two-table permutes and
# with one-table ones in their place.
KERNEL = "UUDDDDDDMLLHHHSSSPPBBXAAAAA"
DEFAULT_MIXES = ["M", "D", "L", "U", "S", "B", "Q", "P", "H", "A", "X", "MS", "MH", "DS", "DB", "DQ",
                 "DP", "DSS", "MSS", "DQQ", KERNEL, KERNEL.replace("S", "Q").replace("B", "Q")]

REGISTERS = [r for r in range(32) if r not in (12, 13, 14)][:24]


def filled(mix):
    """The mix repeated until every register has an operation."""
    return mix * -(-len(REGISTERS) // len(mix))


def loop_source(index, mix):
    body = " ".join(
        '"%s\\n\\t"' % OPERATIONS[c].format(r="%%zmm%d" % REGISTERS[i % len(REGISTERS)]).replace("%", "%%")
        for i, c in enumerate(mix))
    clobbers = ", ".join('"xmm%d"' % r for r in sorted(REGISTERS + [12, 13, 14]))
    return """
static double mix%d(long n)
{
    const auto t0 = std::chrono::steady_clock::now();
    __asm__ volatile("vpxord %%%%zmm12, %%%%zmm12, %%%%zmm12\\n\\t"
                     "vpternlogd $0xff, %%%%zmm13, %%%%zmm13, %%%%zmm13\\n\\t"
                     "vpxord %%%%zmm14, %%%%zmm14, %%%%zmm14\\n\\t"
                     "1:\\n\\t" %s "dec %%0\\n\\tjnz 1b\\n\\tvzeroupper"
                     : "+r"(n) : : "memory", %s);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}
""" % (index, body, clobbers)


def program(mixes, ghz):
    parts = ["#include <algorithm>", "#include <chrono>", "#include <cstdio>"]
    mixes = [filled(m) for m in mixes]
    parts += [loop_source(i, m) for i, m in enumerate(mixes)]
    parts.append("int main()\n{\n    const long n = 2000000;")
    for i, m in enumerate(mixes):
        parts.append(
            '    { double best = 1e30; for (int r = 0; r < 7; ++r) best = std::min(best, mix%d(n));\n'
            '      const double cycles = best * %f / n;\n'
            '      std::printf("%%-30s %%7.2f cycles a loop %%6.2f an operation\\n", "%s", cycles, cycles / %d); }'
            % (i, ghz * 1e9, m if len(m) <= 30 else m[:27] + "...", len(m)))
    parts.append("}")
    return "\n".join(parts) + "\n"


def main(argv):
    ghz = 3.65
    mixes = []
    for a in argv[1:]:
        if a.startswith("--ghz="):
            try:
                ghz = float(a.split("=", 1)[1])
            except ValueError:
                ghz = 0.0
            if not ghz > 0.0:
                print("pipe_mix.py: --ghz wants a clock above 0, in GHz", file=sys.stderr)
                return 2
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
        subprocess.run(["g++", "-O2", "-mavx512f", "-o", binary, source], check=True)
        return subprocess.run([binary]).returncode


if __name__ == "__main__":
    sys.exit(main(sys.argv))
