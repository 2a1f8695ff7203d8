#!/usr/bin/env python3
"""Reads Google Benchmark reports with rows named Family/Ours, Family/Peer:name and Family/Plain:what, where an argument
may follow (Family/Ours/64); prints the median of each and ours as a ratio to each of the others with the same argument.
A peer with an aim shows whether the ratio meets it; within 5 % of the aim is undecided."""
import json
import statistics
import sys

# (family, other row) -> the most that ours may take, as a ratio to the other.
AIMS = {
    ("TimeAddSame", "Peer:absl::Duration"): 1.0,
    ("TimeAddMixed", "Peer:av_add_q"): 0.15,
    ("TimeConvert", "Peer:gst_util_uint64_scale"): 0.95,
    ("TimeCompareMixed", "Peer:av_compare_ts"): 0.6,
    ("BlockBuild1", "Peer:GstBuffer"): 0.4,
    ("BlockBuild8", "Peer:GstBuffer"): 0.4,
    ("BlockBuild64", "Peer:GstBuffer"): 0.4,
    ("BlockBuild8", "Peer:absl::Cord"): 0.8,
    ("BlockBuild64", "Peer:absl::Cord"): 0.8,
    ("BlockBuild4096", "Peer:absl::Cord"): 0.8,
    ("BlockSubrange64", "Peer:absl::Cord"): 0.4,
    ("BlockGather64K_1", "Plain:memcpy"): 1.1,
    ("BlockGather64K_8", "Plain:memcpy"): 1.1,
    ("BlockGather64K_64", "Plain:memcpy"): 1.1,
    ("BlockGather64K_4096", "Plain:memcpy"): 1.1,
    ("RetainRelease", "Peer:GObject"): 1.0,
    ("ObjectCreateRelease", "Peer:GObject"): 0.15,
    ("DictFind4Same", "Peer:GHashTable"): 0.5,
    ("DictFind4Equal", "Peer:GHashTable"): 0.5,
    ("DictFind64Same", "Peer:GHashTable"): 0.5,
    ("DictFind64Equal", "Peer:GHashTable"): 0.5,
    ("DictCreateOne", "Peer:GHashTable"): 0.5,
    ("FormatCreate0", "Peer:GstCaps"): 0.5,
    ("FormatCreate8", "Peer:GstCaps"): 0.5,
    ("NotifyPost0", "Peer:g_signal_emit"): 1.0,
    ("NotifyPost1", "Peer:boost::signals2"): 0.6,
    ("NotifyPost10", "Peer:boost::signals2"): 0.35,
    ("NotifyPost100", "Peer:boost::signals2"): 0.2,
    ("AtomWalk1000", "Peer:GstByteReader"): 1.5,
    ("AtomWrite1000", "Peer:GstByteWriter"): 0.7,
    ("GzipRead", "Peer:gzread"): 1.1,
    ("WorkQueuePostRun", "Peer:asio::strand"): 1.0,
    ("RunLoopTimerLateP50", "Plain:timerfd"): 1.15,
    ("RunLoopTimerLateP90", "Plain:timerfd"): 1.15,
    ("TimerSourceLateP50", "Plain:timerfd"): 1.15,
    ("TimerSourceLateP90", "Plain:timerfd"): 1.15,
    ("RunLoopRearm10000", "Peer:asio::steady_timer"): 0.6,
    ("TimerSourceRearm10000", "Peer:asio::steady_timer"): 0.6,
    ("BufferQueue", "Peer:std::priority_queue"): 1.0,
    ("BufferQueue", "Peer:GAsyncQueue"): 0.8,
    ("SimpleQueueOneThread", "Peer:boost::spsc_queue"): 1.2,
    ("SimpleQueueTwoThreads", "Peer:boost::spsc_queue"): 0.7,
    ("PoolGetPut", "Peer:AVBufferPool"): 0.5,
    ("PoolWritten", "Plain:free list"): 1.05,
    ("PoolWritten", "Plain:mmap"): 0.01,
    ("TimebaseTime1", "Plain:clock_gettime"): 3.0,
    ("TimebaseTimerRearm10000", "Peer:asio::steady_timer"): 0.6,
    ("SPSParseH264", "Peer:gst_h264_parse_sps"): 0.4,
    ("HostClockRead", "Plain:clock_gettime"): 1.1,
    ("AffineMap", "Peer:gst_clock_adjust_unlocked"): 0.9,
    ("AffineMapSameRate", "Peer:gst_clock_adjust_unlocked"): 0.9,
    ("SPSParseHEVC", "Peer:gst_h265_parse_sps"): 0.4,
    ("MovieOpenPlain", "Peer:avformat_open_input"): 0.2,
    ("MovieOpenFragments", "Peer:avformat_open_input"): 0.1,
}


def medians(files):
    """family -> {row: (median nanoseconds of CPU time, relative spread)}."""
    times = {}
    for name in files:
        with open(name) as file:
            rows = json.load(file)["benchmarks"]
        for row in rows:
            if row.get("run_type") == "iteration" and not row.get("error_occurred"):
                family, what, *rest = row["run_name"].split("/")
                real = "real_time" in rest or "manual_time" in rest
                settings = ("real_time", "process_time", "manual_time", "iterations:1")
                argument = "/".join(part for part in rest if part not in settings)
                family = f"{family}[{argument}]" if argument else family
                scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[row["time_unit"]]
                times.setdefault(family, {}).setdefault(what, []).append(row["real_time" if real else "cpu_time"] * scale)
    return {f: {w: (statistics.median(t), (max(t) - min(t)) / statistics.median(t)) for w, t in rows.items()}
            for f, rows in times.items()}


def verdict(ratio, aim):
    if aim is None:
        return ""
    word = "undecided" if abs(ratio / aim - 1) <= 0.05 else "met" if ratio <= aim else "MISSED"
    return f"aim {aim:g}: {word}"


def main():
    print(f"{'family':24} {'beside':34} {'ours ns':>12} {'other ns':>12} {'ratio':>7}  spread")
    for family, rows in sorted(medians(sys.argv[1:]).items()):
        if "Ours" not in rows:
            continue
        ours, spread = rows["Ours"]
        for what, (other, other_spread) in rows.items():
            if what != "Ours":
                ratio = ours / other
                aim = AIMS.get((family.split("[")[0], what))
                print(f"{family:24} {what:34} {ours:12.2f} {other:12.2f} {ratio:7.2f}  "
                      f"{100 * spread:3.0f}%/{100 * other_spread:.0f}%  {verdict(ratio, aim)}")


main()
