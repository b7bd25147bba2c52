#!/usr/bin/env python3
"""Writes the seed inputs of the two lumxd fuzzers (run from anywhere):

  fuzz/corpus/ilumx_transaction_fuzzer/  one short transaction sequence per
      interface operation and a few use-case scripts, in the fuzzer's record
      format (code:u8, length:u16le, parcel payload after the interface
      token), parcels encoded the way the host binding writes them
  fuzz/corpus/control_reply_fuzzer/  each operation with plain echo replies
      and with DSP-like tap list and info answers

The seeds only give the fuzzers a start on well-formed input; they mutate
away from it on their own.
"""

import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def fourcc(s):
    return struct.unpack(">I", s.encode())[0]


def i32(v):
    return struct.pack("<i", v if v < 0x80000000 else v - 0x100000000)


def string(s):
    b = s.encode()
    pad = (4 - (len(b) + 1) % 4) % 4
    return i32(len(b)) + b + b"\0" + b"\0" * pad


def strings(lst):
    return i32(len(lst)) + b"".join(string(s) for s in lst)


def parcelable(body):
    # non-null marker, then the size-prefixed body (the size counts itself)
    return i32(1) + i32(len(body) + 4) + body


def param_int(v):
    return i32(1) + i32(0) + i32(v)  # non-null marker, tag i, value


def param_float(f):
    return i32(1) + i32(1) + struct.pack("<f", f)


def byte_array(b):
    pad = (4 - len(b) % 4) % 4
    return i32(len(b)) + b + b"\0" * pad


def pair(param, element):
    return parcelable(i32(param) + i32(element))


def audio_packet(pid, data, codes=(5, 0, 1, 1, 1)):
    return parcelable(i32(pid) + byte_array(data) + b"".join(i32(c) for c in codes))


OPS = ["Ping", "ShowGraph", "ListProcessors", "ListSupportedProcessors", "NewProcessor",
       "NewProcessorWithType", "DeleteProcessor", "ListSupportedUseCases", "Enable", "IsEnabled",
       "ProcessorInfo", "ProcessorEnable", "ProcessorIsEnabled", "TapList", "TapInfo", "TapEnable",
       "TapSetBlockLength", "ListTapOutBuffers", "ListInjectBuffers", "Connect", "ConnectTap", "StartIo",
       "StopIo", "Debug", "EnableUseCase", "IsUseCaseEnabled", "SetParameter", "GetParameter",
       "SetParameterBulk", "GetParameterBulk", "ListParameters", "SendAudio", "RegisterReceiveAudioCallback"]
GET_VERSION, GET_HASH = 33, 34


def rec(op, payload=b""):
    code = OPS.index(op) if isinstance(op, str) else op
    return bytes([code]) + struct.pack("<H", len(payload)) + payload


P, A = fourcc("pas1"), fourcc("art0")
PASS, AREL = fourcc("pass"), fourcc("arel")
IMIC = fourcc("imic")


def ilumx_seeds():
    new_pass = rec("NewProcessorWithType", i32(P) + i32(PASS))
    new_arel = rec("NewProcessorWithType", i32(A) + i32(AREL))
    s = {
        "ping": rec("Ping"),
        "show_graph": rec("ShowGraph"),
        "lists": rec("ListProcessors") + rec("ListSupportedProcessors") + rec("ListSupportedUseCases")
        + rec("ListTapOutBuffers") + rec("ListInjectBuffers") + rec("ListParameters"),
        "version_hash": rec(GET_VERSION) + rec(GET_HASH),
        "new_delete": rec("NewProcessor", i32(P)) + rec("ProcessorInfo", i32(P)) + rec("DeleteProcessor", i32(P)),
        "pass_life": new_pass + rec("Connect", i32(P) + i32(-1) + i32(-1)) + rec("ProcessorEnable", i32(P) + i32(1))
        + rec("ProcessorIsEnabled", i32(P)) + rec("ProcessorInfo", i32(P)) + rec("ListProcessors"),
        "enable_name": rec("Enable", string("mic_in") + i32(1)) + rec("IsEnabled", string("AREL_TELE"))
        + rec("Enable", string("MIC-IN") + i32(0)),
        "use_cases": rec("EnableUseCase", i32(1) + i32(1)) + rec("EnableUseCase", i32(3) + i32(1))
        + rec("IsUseCaseEnabled", i32(3)) + rec("EnableUseCase", i32(3) + i32(0)) + rec("EnableUseCase", i32(-1) + i32(1)),
        "taps": rec("TapList", i32(2)) + rec("TapInfo", i32(2) + i32(IMIC) + i32(0))
        + rec("TapEnable", i32(2) + i32(IMIC) + i32(0) + i32(1)) + rec("TapSetBlockLength", i32(4) + i32(IMIC) + i32(256) + i32(960))
        + rec("ConnectTap", i32(2) + i32(IMIC) + i32(0) + i32(20) + i32(20)),
        "io": rec("StartIo", i32(-1)) + rec("StopIo", i32(20)) + rec("StartIo", i32(20)),
        "debug": rec("Debug", strings([])) + rec("Debug", strings(["help"])) + rec("Debug", strings(["log_start", "/data/x"]))
        + rec("Debug", strings(["log_stop"])) + rec("Debug", strings(["buffer_dump", "tapout", "0"]))
        + rec("Debug", strings(["buffer_init"])) + rec("Debug", strings(["buffer_deinit"])) + rec("Debug", strings(["HELP"])),
        "params": new_arel + rec("SetParameter", i32(A) + i32(3) + i32(0) + param_int(960))
        + rec("SetParameter", i32(A) + i32(1) + i32(7) + param_int(5)) + rec("SetParameter", i32(A) + i32(3) + i32(0) + param_float(960.0))
        + rec("GetParameter", i32(A) + i32(4) + i32(1)) + rec("GetParameter", i32(A) + i32(0) + i32(1))
        + rec("SetParameterBulk", i32(A) + i32(2) + pair(1, 0) + pair(2, 0) + i32(2) + param_int(1) + param_int(0))
        + rec("GetParameterBulk", i32(A) + i32(3) + pair(3, 0) + pair(4, 5) + pair(-1, 0)),
        "relay": new_arel + rec("ProcessorEnable", i32(A) + i32(1))
        + rec("SendAudio", i32(A) + audio_packet(A, bytes(range(64))))
        + rec("SendAudio", i32(A) + audio_packet(A, b"\1\2", (5, 0, 1, 2, 1)))
        + rec("RegisterReceiveAudioCallback", i32(A) + i32(0) + i32(0)),
    }
    return s


def control_seeds():
    def head(op, a, b, c):
        return bytes([op]) + i32(a) + i32(b) + i32(c)

    def echo(payload, status=0, size=0):
        body = payload + b"\0" * (size - 8 - len(payload))
        return b"\0" + body + struct.pack("<h", status)

    def tap_id(code, index, core, enabled=0):
        return struct.pack("<IBBBB", code, index, core, enabled, 0)

    def info(code, index, core, enabled, rate, block, ch, bits, out, inj):
        return echo(tap_id(code, index, core, enabled) + struct.pack("<fIBBbb", rate, block, ch, bits, out, inj), 0, 28)

    # one full page of four taps, their four info answers, then an empty page
    page = struct.pack("<BBH", 2, 0, 5) + b"".join(tap_id(fourcc(c), 0, 2) for c in ("imic", "sspk", "eref", "aecr"))
    walk = (echo(page, 0, 44)
            + info(fourcc("imic"), 0, 2, 1, 48000.0, 480, 1, 16, 20, 20)
            + info(fourcc("sspk"), 0, 2, 0, 48000.0, 480, 2, 16, 21, -1)
            + info(fourcc("eref"), 0, 2, 1, 44100.0, 4800, 2, 24, -1, 21)
            + info(fourcc("aecr"), 0, 2, 0, 16000.0, 960, 1, 32, 99, 98)
            + echo(b"", 0, 44))
    return {
        "tap_list_echo": head(0, 2, 0, 0),
        "tap_list_walk": head(0, 2, 0, 0) + walk,
        "tap_info": head(1, 2, IMIC, 0) + info(IMIC, 0, 2, 1, 48000.0, 480, 2, 16, 20, -1),
        "tap_info_error": head(1, 3, IMIC, 1) + echo(b"", -2, 28),
        "tap_enable_stray": head(2, 2, IMIC, 0) + b"\1\xcc\0" + echo(b"", 0, 16),
        "block_len_late": head(3, 4, fourcc("vpdl"), 0) + b"\2\3" + b"\0" * 20 + echo(b"", -22, 20),
        "connect_tap": head(4, 2, IMIC, 0x141400) + echo(b"", 0, 18),
        "show_graph": head(5, 0, 0, 0) + walk + echo(b"", 0, 44) + echo(b"", 0, 44),
        "show_graph_fail": head(5, 0, 0, 0) + echo(b"", 0, 44) + echo(b"", -19, 44),
        "bare_command": head(6, 3, IMIC, 0x0102) + b"\3" + struct.pack("<HHHh", 0, 28, 0xcd, 7) + b"\0" * 20,
        "tap_points": head(7, 2, 0, 0) + walk,
    }


def write(name, seeds):
    d = os.path.join(HERE, name)
    os.makedirs(d, exist_ok=True)
    for k, v in seeds.items():
        with open(os.path.join(d, "seed_" + k), "wb") as f:
            f.write(v)


if __name__ == "__main__":
    write("ilumx_transaction_fuzzer", ilumx_seeds())
    write("control_reply_fuzzer", control_seeds())
