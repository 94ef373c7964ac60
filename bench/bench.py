#!/usr/bin/env python3
"""Measures TesselCore beside other servers. scripts/bench builds what this needs and calls it.

Prints tables and writes the raw figures to bench/results.
"""

import argparse
import json
import pathlib
import signal
import subprocess
import sys
import time

from harness import applications, desktop, flow, machine, peers, sections
from harness.rounds import Rounds

HERE = pathlib.Path(__file__).resolve().parent


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__.splitlines()[0])
    parser.add_argument("--quick", action="store_true",
                        help="fewer and shorter rounds: under a minute, and less exact")
    parser.add_argument("--only", nargs="+", metavar="SECTION", choices=list(SECTIONS),
                        help="only these: " + ", ".join(SECTIONS))
    parser.add_argument("--build", type=pathlib.Path, default=HERE.parent / "build",
                        help=argparse.SUPPRESS)
    return parser.parse_args()


SECTIONS = {
    "round-trip": lambda quick, *common: sections.RoundTrip(*common),
    "turns": lambda quick, *common: sections.Turns(*common),
    "connecting": lambda quick, *common: sections.Connecting(*common),
    "pipelined": lambda quick, *common: sections.Pipelined(*common),
    "channels": lambda quick, *common: flow.Channels(*common),
    "registrations": lambda quick, *common: flow.Registrations(*common),
    "pen": lambda quick, *common: flow.PenEvents(*common),
    "pen-sustained": lambda quick, *common: flow.PenSustained(*common, seconds=10 if quick else 600),
    "start": lambda quick, *common: sections.Start(*common, starts=10 if quick else 40),
    "icon": lambda quick, *common: desktop.Icon(*common),
    "file-types": lambda quick, *common: desktop.FileTypes(*common),
    "memory": lambda quick, *common: sections.Memory(*common, seconds=3 if quick else 10),
    "removal": lambda quick, *common: applications.Removal(
        *common, files=10000 if quick else 100000, count=3),
    "lookup": lambda quick, *common: applications.Lookup(*common),
}


def version():
    described = subprocess.run(["git", "-C", HERE, "describe", "--always", "--dirty"],
                               capture_output=True, text=True, check=False)
    return described.stdout.strip() or "unknown"


def print_heading(about):
    print(f"{about['processor']}, {about['processors']} processors, Linux {about['kernel']}")
    print(f"{about['rounds']} rounds of {about['milliseconds']} ms for each row, in turn; medians, "
          "and in brackets the middle half of the rounds.")
    print(f"Ratios are to the bare server of the same round. Load of the machine before: "
          f"{about['load before']:.2f}")
    if about["load before"] > 0.3:
        print("Others are at work on this machine: take the figures with care.")
    print(flush=True)


def main():
    arguments = parse_arguments()
    # The servers are ended with the run, whatever ends it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    place = peers.Place(arguments.build)
    rounds = Rounds(place, *((3, 100) if arguments.quick else (11, 250)))
    about = {
        **machine.describe(), "version": version(), "quick": arguments.quick,
        "time": time.strftime("%Y-%m-%dT%H:%M:%S"), "load before": machine.load_average(),
        "rounds": rounds.count, "milliseconds": rounds.milliseconds,
    }
    print_heading(about)
    noise = machine.Noise()
    start = time.monotonic()
    results, texts = {}, []
    try:
        for name in arguments.only or SECTIONS:
            section = SECTIONS[name](arguments.quick, place, rounds, machine.processors())
            results[name], tables = section.measure()
            for text in tables:
                print(text, flush=True)
            texts += tables
    finally:
        place.close()
    about["seconds"] = round(time.monotonic() - start)
    about["time stolen"] = noise.stolen()
    print(f"{about['seconds']} s; the hypervisor gave {about['time stolen']:.1%} of the time to "
          "others.")
    save(about, results, texts)
    return 0


def save(about, results, texts):
    folder = HERE / "results"
    folder.mkdir(exist_ok=True)
    name = about["time"].replace(":", "")
    (folder / f"{name}.json").write_text(
        json.dumps({"about": about, "results": results}, indent=1), encoding="utf-8")
    (folder / f"{name}.txt").write_text("\n".join(texts), encoding="utf-8")
    print(f"The raw figures are in {(folder / name).relative_to(HERE.parent)}.json")


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (RuntimeError, OSError, subprocess.SubprocessError) as error:
        sys.exit(f"bench: {error}")
    except KeyboardInterrupt:
        sys.exit(130)
