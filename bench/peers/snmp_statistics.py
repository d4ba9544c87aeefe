"""Statistics for snmpd's pass_persist: string K of a table is the value of the K-th statistic.

snmp_statistics.py BASE N
"""

import sys


def following(base, n, oid):
    """The number of the first string behind an object identifier, 0 if there is none."""
    parts = [int(part) for part in oid.strip(".").split(".")]
    start = [int(part) for part in base.strip(".").split(".")]
    if parts <= start:
        return 1
    if parts[: len(start)] != start:
        return 0
    k = parts[len(start)] + 1
    return k if k <= n else 0


def serve(base, n):
    for line in sys.stdin:
        request = line.strip()
        if request == "PING":
            print("PONG", flush=True)
            continue
        oid = sys.stdin.readline().strip()
        k = following(base, n, oid) if request == "getnext" else 0
        if k:
            print(f"{base}.{k}\nstring\n{(k - 1) * 7919 % 100000000:08}", flush=True)
        else:
            print("NONE", flush=True)


if __name__ == "__main__":
    serve(sys.argv[1], int(sys.argv[2]))
