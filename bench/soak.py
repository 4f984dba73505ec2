#!/usr/bin/env python3
"""A mixed load for as long as one likes, with reloads and killed processes: whether every answer is the right one, and
whether memory and descriptors stay.

    NETSIFTD=build/test/netsiftd nice bench/soak.py [--minutes N] [--rate R] [--of-old] [--json] [--keep FOLDER]

A netsiftd with sanitizers between clients and an origin (scripted, and nginx), with clamd; with --of-old strict_http is
off and squid stands behind it. Pages kept and new, coded, cut up, blocked for each reason, scanned; uploads; tunnels;
clients that leave. Each answer is compared with what the origin sent, and with what came without load. A request that
fails is excused only when the process that served its connection was killed: that one is stopped first, and the ports
of the clients whose sockets it holds are noted before it is killed.

Prints a line a minute (memory is KiB of a process's own; a daemon's whole is its Pss) and a table: the mean of the
first and last quarter after the first minutes, and the slope with its standard error, of which three are no growth.
Ends with 1 if anything was not as it should be. Needs the packages of the sections run, upstream, scan and test."""
import argparse
import json
import os
import pathlib
import random
import re
import signal
import statistics
import sys
import threading
import time
from collections import defaultdict, namedtuple
from concurrent.futures import ThreadPoolExecutor
from contextlib import ExitStack, suppress

TOP = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TOP / "tests/e2e"))
from harness import NETSIFTD, Filter, Nginx, Peer, Squid, wait_until  # noqa: E402
from soakLoad import FILES, SETTINGS, Load  # noqa: E402

TUNNELS, SESSIONS_AT_ONCE = 16, 100
WARM, LEAST_MINUTES = 3, 5  # minutes that are not looked at, and without which growth cannot be told
RELOAD_SECONDS, KILL_SECONDS, SAMPLE_SECONDS = 60, 20, 5
AGES = {"worker, to 15 s": (0, 15), "worker, to 45 s": (15, 45), "worker, older": (45, 1e9)}
ROWS = ["supervisor", "generation", "relay", *AGES, "all"]
TICKS = os.sysconf("SC_CLK_TCK")
# What its descriptors and memory (KiB) may have grown by at the end: noise, and a hundredth.
MOST_GROWTH = {"memory": (300, 0.01), "descriptors": (0.5, 0.01)}
# What an old worker may have more than a young one, of memory, and of descriptors while both wait: what sanitizers keep
# of what was freed, and four connections to sites.
MOST_WITH_AGE = {"memory": 8000, "descriptors": 4.5}
SAID = [r"/bin/chown: invalid user: .*", r".*: warning: no scan engine answers here .*",
        r"configuration and lists loaded anew", r"a connection's process \(\d+\) ended by signal 9", r"listening on .*",
        r"listen\.max_connections is reached: .*"]

Sample = namedtuple("Sample", "time row memory descriptors waits")


def parse():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n\n")[0])
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--rate", type=float, default=30, help="requests a second, beside %d tunnels" % TUNNELS)
    parser.add_argument("--of-old", action="store_true", help="strict_http off, behind squid")
    parser.add_argument("--json", action="store_true", help="the result as JSON in place of the table")
    parser.add_argument("--keep", type=pathlib.Path, help="folder for configuration and logs, which stay there")
    return parser.parse_args()


def kibibytes(pid, file, name):
    found = re.search(rf"\n{name}:\s+(\d+)", pathlib.Path(f"/proc/{pid}/{file}").read_text())
    if not found:
        raise ProcessLookupError  # it has ended, and its parent was not told yet
    return int(found[1])


def age(pid):
    """Seconds; and its state."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return time.clock_gettime(time.CLOCK_BOOTTIME) - int(fields[19]) / TICKS, fields[0]


def children(pid):
    return pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()


class Soak:
    def __init__(self, filtering, load, begin):
        self.filtering, self.load, self.begin = filtering, load, begin
        self.samples, self.lines, self.reloads, self.kills = [], [], 0, []
        self.list = filtering.etc / "sample.url.orig"
        self.shipped = self.list.read_text()

    # What happens to the daemon

    def wait(self, seconds):
        """False when the load has ended."""
        return not self.load.ended.wait(seconds)

    def reload(self):
        """With "toggled" on the list, or off it again, and the log begun anew."""
        said, load = self.filtering.output.read_text().count("loaded anew"), self.load
        listed, load.listed, load.changed = not load.listed, None, time.monotonic()
        self.list.write_text(self.shipped + f"{load.host}/toggled*\n" * listed)
        log = self.filtering.logs / "netsift-debug.log"
        log.rename(log.with_suffix(f".{'faults' if load.unexpected else 'before'}"))
        self.filtering.process.send_signal(signal.SIGHUP)
        wait_until(lambda: self.filtering.output.read_text().count("loaded anew") > said, "loading anew")
        load.listed, load.changed = listed, time.monotonic()
        self.reloads += 1

    def served_ports(self, pid):
        """The ports of the clients whose sockets it holds."""
        held = self.filtering.sockets(pid)
        return [int(row[2].partition(":")[2], 16) for row in self.filtering.client_rows()
                if row[3] != "0A" and f"socket:[{row[9]}]" in held]

    def kill(self):
        """One of the workers; as it is stopped first, what it serves is known exactly."""
        workers = set(self.filtering.processes())
        busy = workers & set(self.filtering.connections())
        victim = int(random.choice(sorted(busy if busy and random.random() < 0.7 else workers)))
        os.kill(victim, signal.SIGSTOP)
        wait_until(lambda: age(victim)[1] not in "RSD", "the process to stop")
        if age(victim)[1] != "T":
            return
        ports = self.served_ports(victim)
        self.load.killed.update(dict.fromkeys(ports, time.monotonic()))
        os.kill(victim, signal.SIGKILL)
        self.kills.append((victim, ports))

    def do_every(self, job, pause):
        while self.wait(pause()):
            try:
                with suppress(FileNotFoundError, ProcessLookupError):  # it ended just now
                    job()
            except Exception as error:  # pylint: disable=broad-except
                self.load.unexpected.append(f"{time.strftime('%X')} {job.__name__}: {type(error).__name__} {error}")

    # What it costs

    def take(self, pid, row, other=0, clients=frozenset()):
        with suppress(OSError):
            waits = not clients & self.filtering.sockets(pid)
            self.samples.append(Sample(time.monotonic() - self.begin, row, kibibytes(pid, "status", "RssAnon"),
                                       len(os.listdir(f"/proc/{pid}/fd")) - other, waits))

    def sample(self):
        supervisor, total, descriptors = self.filtering.process.pid, 0, 0
        serving = children(supervisor)
        self.take(supervisor, "supervisor", len(serving))  # it has one for each loading that still serves
        newest = min(serving, key=lambda pid: age(pid)[0])
        if age(newest)[0] > 5:  # it has loaded
            self.take(newest, "generation")
        clients = {f"socket:[{row[9]}]" for row in self.filtering.client_rows() if row[3] != "0A"}
        for pid in self.filtering.served_by():
            with suppress(OSError):
                name = self.filtering.name(pid)
                row = next(row for row, (least, most) in AGES.items() if least <= age(pid)[0] < most)
                if name.startswith("netsiftd-"):
                    self.take(pid, "relay" if name.endswith("relay") else row, 0, clients)
        for pid in [supervisor, *serving, *self.filtering.served_by()]:
            with suppress(OSError):
                total += kibibytes(pid, "smaps_rollup", "Pss")
                descriptors += len(os.listdir(f"/proc/{pid}/fd"))
        self.samples.append(Sample(time.monotonic() - self.begin, "all", total, descriptors, False))

    def minute(self):
        load, recent = self.load, [each for each in self.samples if each.time > time.monotonic() - self.begin - 60]
        with load.lock:
            times, load.times = sorted(load.times), []
        means = {row: [statistics.mean(each[kind] for each in recent if each.row == row) for kind in (2, 3)]
                 for row in ROWS if any(each.row == row for each in recent)}
        texts = [f"{row} {memory:.0f}/{descriptors:.1f}" for row, (memory, descriptors) in means.items()]
        slowest = f"{times[len(times) // 2] * 1000:.0f}/{times[-len(times) // 100] * 1000:.0f}" if times else "-"
        print(f"{(time.monotonic() - self.begin) / 60:6.1f} min: {sum(load.counts.values())} answers, "
              f"{len(load.excused)} excused, {len(load.unexpected)} wrong, ms {slowest}; " + "; ".join(texts),
              file=sys.stderr, flush=True)

    def with_age(self):
        """What workers have more when they are old; a connection that leaves something for good adds up."""
        young, *_, old = ([each for each in self.samples if each.row == row] for row in AGES)
        found = {}
        for index, kind, waiting in ((2, "memory", False), (3, "descriptors", True)):
            means = [statistics.mean(each[index] for each in samples if each.waits or not waiting)
                     for samples in (young, old) if any(each.waits for each in samples)]
            found[kind] = means[1] - means[0] if len(means) == 2 else 0
        return found

    def trends(self, minutes):
        """Of each row and kind, over minutes' means after the first ones."""
        found = {}
        for row in ROWS:
            for index, kind in ((2, "memory"), (3, "descriptors")):
                each_minute = defaultdict(list)
                for sample in self.samples:
                    if sample.row == row and WARM <= sample.time // 60 < minutes:
                        each_minute[sample.time // 60].append(sample[index])
                points = [(minute, statistics.mean(values)) for minute, values in sorted(each_minute.items())]
                found[row, kind] = trend(points, *MOST_GROWTH[kind]) if len(points) >= LEAST_MINUTES else None
        return found


def trend(points, noise, share):
    minutes, values = zip(*points)
    (slope, offset), quarter = statistics.linear_regression(minutes, values), max(1, len(values) // 4)
    left = sum((value - offset - slope * minute) ** 2 for minute, value in points) / (len(points) - 2)
    unsure = (left / statistics.pvariance(minutes) / len(points)) ** 0.5
    growth, known = ((slope - each) * (minutes[-1] - minutes[0]) for each in (0, 3 * unsure))
    return {"first": statistics.mean(values[:quarter]), "last": statistics.mean(values[-quarter:]), "hour": slope * 60,
            "unsure": unsure * 60, "flat": known < 0 or growth < noise + share * statistics.mean(values)}


def faults(soak, output):
    """Everything that is not as it should be."""
    load, lines = soak.load, [line.partition("netsiftd: ")[2] or line for line in output.splitlines() if line]
    found = [f"answer: {each}" for each in load.unexpected]
    found += [f"said: {line}" for line in lines if not any(re.fullmatch(said, line) for said in SAID)]
    told = sum("ended by signal 9" in line for line in lines)
    if told != len(soak.kills):
        found.append(f"{len(soak.kills)} killed, {told} told")
    cut = sum(len(ports) for _, ports in soak.kills)
    if len(load.excused) > cut:
        found.append(f"{len(load.excused)} connections cut by {cut} kills")
    left = list(soak.filtering.spool.iterdir())
    return found + [f"left in the spool folder: {left}"] * bool(left)


def run(arguments, stack):
    origin, of_old = Nginx(stack.callback), {}
    if arguments.of_old:
        squid = Squid(stack.callback, descriptors=4096)
        of_old = {"http.strict_http": False, "http.escape_text": False, "upstream.proxy": f"127.0.0.1:{squid.port}"}
    filtering = Filter(stack.callback, SETTINGS | {"upstream.timeout": 20} | of_old, FILES[not of_old], arguments.keep)
    filtering.strict, filtering.host = not of_old, "origin.test" if of_old else "localhost"
    filtering.clamd(stack.callback)
    load = Load(filtering, origin, lambda handler: Peer(stack.callback, handler))
    stack.callback(load.ended.set)
    soak = Soak(filtering, load, time.monotonic())
    load.collect(True)
    soak.reload()  # without what the verdict cache knows by now
    load.collect(False)
    if load.unexpected:
        return soak
    load.collecting, soak.begin = False, time.monotonic()
    end, sessions = soak.begin + arguments.minutes * 60, load.sessions()
    jobs = [(soak.reload, lambda: RELOAD_SECONDS), (soak.kill, lambda: random.expovariate(1 / KILL_SECONDS)),
            (soak.sample, lambda: SAMPLE_SECONDS), (soak.minute, lambda: 60)]
    threads = [threading.Thread(target=soak.do_every, args=job) for job in jobs]
    threads += [threading.Thread(target=load.keep_tunnels) for _ in range(TUNNELS)]
    for thread in threads:
        thread.start()
    with ThreadPoolExecutor(SESSIONS_AT_ONCE) as pool:
        due = time.monotonic()
        while due < end:
            session, names = next(sessions)
            due += random.expovariate(arguments.rate) * len(names)
            time.sleep(max(0, due - time.monotonic()))
            pool.submit(load.run, session, names)
            if pool._work_queue.qsize() > 10 * SESSIONS_AT_ONCE:
                load.unexpected.append("the load cannot be kept up")
                break
    load.ended.set()
    for thread in threads:
        thread.join()
    try:
        filtering.written(filtering.output)
    except AssertionError as error:
        load.unexpected.append(f"at the end: {error}")
    return soak


def show(result):
    print(f"\n{'KiB and descriptors':28} {'first':>10} {'last':>10} {'an hour':>10} {'+-':>8}")
    for which, each in result["trends"].items():
        if each is None:
            print(f"{which:28} too short a time to tell")
        else:
            print(f"{which:28} {each['first']:10.1f} {each['last']:10.1f} {each['hour']:+10.1f} "
                      f"{each['unsure']:8.1f} {'' if each['flat'] else 'GROWS'}")
    print(f"an old worker more than a young one: {result['with_age']['memory']:.0f} KiB, while it waits "
          f"{result['with_age']['descriptors']:.2f} descriptors")
    print("\n" + ", ".join(f"{name} {count}" for name, count in sorted(result["answers"].items())))
    print(f"\n{result['minutes']:.1f} minutes, {sum(result['answers'].values())} answers, {result['reloads']} reloads, "
          f"{result['killed']} processes killed with {result['cut']} connections, of which {len(result['excused'])} "
          f"failed; {len(result['faults'])} faults{'' if result['sanitized'] else '; WITHOUT sanitizers'}")
    for fault in result["faults"][:50]:
        print(fault)


def main():
    arguments = parse()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # and end what was started
    os.environ.setdefault("ASAN_OPTIONS", "quarantine_size_mb=4")  # what is freed shall not look like growth
    with ExitStack() as stack:
        soak = run(arguments, stack)
        found = faults(soak, soak.filtering.output.read_text())
        try:
            stack.close()
        except Exception as error:  # pylint: disable=broad-except
            found.append(f"at the end: {type(error).__name__} {error}")
    trends = soak.trends(arguments.minutes)
    found += [f"grows: {' '.join(which)}" for which, each in trends.items() if each and not each["flat"]]
    with_age = soak.with_age()
    found += [f"an old worker has {more:.1f} more of {kind} than a young one" for kind, more in with_age.items()
              if more > MOST_WITH_AGE[kind]]
    result = {"minutes": arguments.minutes, "with_age": with_age, "answers": soak.load.counts, "reloads": soak.reloads,
              "killed": len(soak.kills), "cut": sum(len(ports) for _, ports in soak.kills),
              "excused": soak.load.excused, "faults": found,
              "sanitized": b"__asan" in pathlib.Path(NETSIFTD).read_bytes(),
              "trends": {", ".join(which): each for which, each in trends.items()}}
    if arguments.json:
        print(json.dumps(result, indent=1))
    else:
        show(result)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
