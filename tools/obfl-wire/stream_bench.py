#!/usr/bin/env python3
"""obfl-wire's streaming throughput against a Python loop with libprotobuf, in one run.

    stream_bench.py OBFL_WIRE [COUNT]      (COUNT defaults to 1,000,000)

Writes COUNT syslog messages as libprotobuf writes a delimited stream, then times
`obfl-wire decode --delimited log_syslog` from a pipe and, over the same bytes, a
Python loop of ParseFromString and MessageToJson (libprotobuf's C++ runtime behind
python3-protobuf), checks that both wrote a line per message, and prints wall
time, peak resident memory and the ratio. Also times `encode --delimited` back."""
import os, random, subprocess, sys, tempfile, time

sys.path.append("/usr/lib/python3/dist-packages")  # python3-protobuf beside another interpreter
TOOL = sys.argv[1]
COUNT = int(sys.argv[2]) if len(sys.argv) > 2 else 1000000

LOOP = """
import sys
sys.path.insert(0, sys.argv[1])
sys.path.append("/usr/lib/python3/dist-packages")
import obfl_pb2
from google.protobuf import json_format
from google.protobuf.internal.decoder import _DecodeVarint32
data = sys.stdin.buffer.read()
out, pos, m = sys.stdout, 0, obfl_pb2.log_syslog()
while pos < len(data):
    n, pos = _DecodeVarint32(data, pos)
    m.ParseFromString(data[pos:pos + n])
    pos += n
    out.write(json_format.MessageToJson(m, indent=None) + "\\n")
"""


def timed(argv, stdin_path, stdout_path):
    """Wall seconds and peak resident MB (/usr/bin/time) of one command reading a file through a pipe."""
    with tempfile.NamedTemporaryFile("r") as report, open(stdin_path, "rb") as src, open(stdout_path, "wb") as dst:
        start = time.monotonic()
        cat = subprocess.Popen(["cat"], stdin=src, stdout=subprocess.PIPE)
        subprocess.run(["/usr/bin/time", "-f", "%M", "-o", report.name, *argv], stdin=cat.stdout, stdout=dst, check=True)
        cat.stdout.close()
        cat.wait()
        seconds = time.monotonic() - start
        return seconds, int(report.read().split()[-1]) / 1024


def main():
    with tempfile.TemporaryDirectory(prefix="obfl-stream-bench-") as tmp:
        proto = subprocess.run([TOOL, "proto"], check=True, capture_output=True).stdout
        open(os.path.join(tmp, "obfl.proto"), "wb").write(proto)
        subprocess.run(["protoc", "--proto_path=" + tmp, "--python_out=" + tmp, "obfl.proto"], check=True)
        sys.path.insert(0, tmp)
        import obfl_pb2
        from google.protobuf.internal.encoder import _VarintBytes
        from google.protobuf.internal import api_implementation

        random.seed(21)
        stream, m = bytearray(), obfl_pb2.log_syslog()
        for i in range(COUNT):
            m.Clear()
            m.version, m.timestamp, m.tgt_eid.rack_num = 1, 1700000000 + i, 3
            tsi = m.tgt_eid.tsi.add()
            tsi.type, tsi.instance = 3, 1
            m.client_id, m.seq_num, m.severity = random.randrange(100), i + 1, random.randrange(3)
            m.data = "fan tray %d removed" % random.randrange(10)
            b = m.SerializeToString()
            stream += _VarintBytes(len(b)) + b
        wire, ours, theirs, back = (os.path.join(tmp, n) for n in ("in.bin", "ours.json", "py.json", "back.bin"))
        open(wire, "wb").write(stream)
        print(f"{COUNT} syslog messages, {len(stream)} bytes delimited; python3-protobuf {api_implementation.Type()}")
        print(f"load average: {os.getloadavg()[0]:.2f}")

        t_ours, rss_ours = timed([TOOL, "decode", "--delimited", "log_syslog"], wire, ours)
        t_py, rss_py = timed([sys.executable, "-c", LOOP, tmp], wire, theirs)
        t_enc, rss_enc = timed([TOOL, "encode", "--delimited", "log_syslog"], ours, back)
        lines = [sum(1 for _ in open(p, "rb")) for p in (ours, theirs)]
        assert lines == [COUNT, COUNT], lines
        assert open(back, "rb").read() == bytes(stream), "encode --delimited did not give the same bytes back"
        rate = lambda t: f"{COUNT / t:,.0f} messages/s"
        print(f"obfl-wire decode --delimited:         {t_ours:6.2f} s  {rate(t_ours)}, peak {rss_ours:.1f} MB")
        print(f"python ParseFromString+MessageToJson: {t_py:6.2f} s  {rate(t_py)}, peak {rss_py:.1f} MB")
        print(f"ratio: obfl-wire {t_py / t_ours:.1f}x faster")
        print(f"obfl-wire encode --delimited back:    {t_enc:6.2f} s  {rate(t_enc)}, peak {rss_enc:.1f} MB (same bytes)")

main()
