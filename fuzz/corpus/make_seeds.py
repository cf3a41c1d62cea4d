#!/usr/bin/env python3
"""Writes the fuzz seed corpus: parameter texts (params/) and whole sessions
with a control tail (lifecycle/, layout in fuzz/AmiSession.h). The kit's
.ami file is copied in as params/kit_KV2_RX.ami. Run from this folder."""
import os
import shutil
import struct

seeds = {
    "full": '(KV2_RX (SampleRate 1e12) (EQ 5) (SamplesPerBit 32) (Corner "Typ"))',
    "compact": '(KV2_RX(SampleRate 1e12)(EQ 5)(SamplesPerBit 32)(Corner "Typ"))',
    "multiline": '(KV2_RX\r\n\t(SampleRate 1.0e12)\r\n\t(EQ 15)\r\n\t(SamplesPerBit 64)\r\n\t(Corner "Slow")\r\n)\r\n',
    "simulator_order": '(KV2_RX (Corner "Fast") (SamplesPerBit 100) (EQ 0) (SampleRate 1e12))',
    "reserved_and_model_params": '(KV2_RX (Reserved_Parameters (AMI_Version "7.0") (Init_Returns_Impulse False)'
                             ' (GetWave_Exists True) (Ignore_Bits 100)) (Model_Specific (SampleRate 1e12) (EQ 7))'
                             ' (EQ 7) (SamplesPerBit 32))',
    "missing_all": '(KV2_RX (Other 1))',
    "not_a_tree": 'not a tree',
    "quoted_paren": '(A (B "x ) y"))',
    "nested_list_drops_leaf": '(A (L 1 (2 3)) (M 4))',
    "branch_after_name": '(A (L (2 3)))',
    "three_values": '(A (B 1 2 3))',
    "types": '(KV2_RX (I 3) (F 3.0) (E 1e-9) (H 0x10) (B True) (S true) (Q "Typ") (U Typ) (T Tap) (K Dual-Dirac))',
    "eq_float": '(KV2_RX (EQ 3.9))',
    "eq_string": '(KV2_RX (EQ "3"))',
    "eq_out_of_range": '(KV2_RX (SampleRate 1e12) (EQ 16) (SamplesPerBit 32) (Corner "Typ"))',
    "eq_huge": '(KV2_RX (EQ 1e10) (SamplesPerBit -2147483648))',
    "samplerate_zero": '(KV2_RX (SampleRate 0) (EQ 1) (SamplesPerBit 32) (Corner "Typ"))',
    "samplerate_huge": '(KV2_RX (SampleRate 1e300) (EQ 2) (SamplesPerBit 32))',
    "samplerate_nan": '(KV2_RX (SampleRate nan) (EQ 2) (SamplesPerBit inf))',
    "samplesperbit_small": '(KV2_RX (SamplesPerBit 15))',
    "corner_empty": '(KV2_RX (Corner ""))',
    "corner_long": '(KV2_RX (Corner "' + 'Slow' * 60 + '"))',
    "corner_short": '(KV2_RX (Corner "))',
    "second_top_group": '(KV2_RX (EQ 3)) (X 1)',
    "unbalanced": '(KV2_RX (EQ 3)',
    "leaf_root": '(A 1)',
    "stray_close": '(KV2_RX (EQ 3)))(',
    "deep": '(KV2_RX ' + '(a ' * 40 + '(EQ 3)' + ')' * 41,
    "blanks_120": '(KV2_RX' + ' ' * 120 + '(EQ 3))',
}


def tail(flags, block, timing=None, samples=(), raw=False):
    """NUL, flags, block selector, optional timing, then the samples."""
    b = bytes([0, flags, block])
    if timing:
        b += struct.pack("<dd", *timing)
    for s in samples:
        if raw:
            b += struct.pack("<d", s)
        else:
            b += struct.pack("<h", max(-32768, min(32767, int(s * 32768))))
    return b


def main():
    os.makedirs("params", exist_ok=True)
    os.makedirs("lifecycle", exist_ok=True)
    for name, text in seeds.items():
        with open(os.path.join("params", name + ".txt"), "wb") as f:
            f.write(text.encode())
    kit = os.path.join("..", "..", "kit", "KV2_RX.ami")
    if os.path.exists(kit):
        shutil.copyfile(kit, os.path.join("params", "kit_KV2_RX.ami"))

    nrz = [0.5 if (i // 32) % 2 == 0 else -0.5 for i in range(700)]
    full = seeds["full"].encode()
    sessions = {
        "blocks_of_29": full + tail(0, 7, samples=nrz),
        "one_sample_calls": full + tail(0, 0, samples=nrz[:200]),
        "timing_8_spb": seeds["compact"].encode() + tail(1, 25, timing=(1e-12, 8e-12), samples=nrz),
        "raw_doubles_nonfinite": full + tail(2 | 4, 3, raw=True, samples=[1.0, float("inf"), -1.0, float("nan"),
                                                                          1e308, -1e308, 5e-324, 0.0] * 8),
        "zero_interval": seeds["eq_out_of_range"].encode() + tail(1, 1, timing=(0.0, 1e-12), samples=nrz[:100]),
        "samplerate_huge_session": seeds["samplerate_huge"].encode() + tail(0, 10, samples=nrz[:300]),
    }
    for name, data in sessions.items():
        with open(os.path.join("lifecycle", name + ".bin"), "wb") as f:
            f.write(data)


if __name__ == "__main__":
    main()
