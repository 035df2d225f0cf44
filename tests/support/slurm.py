"""A cluster of Slurm on this machine alone: its daemons run in a folder of their own, and play four nodes."""

import os
import shutil
import socket
import subprocess
import time
from pathlib import Path

NODES = ["n1", "n2", "n3", "n4"]


def is_installed():
    return all(shutil.which(name, path=os.environ["PATH"] + ":/usr/sbin") for name in ("munged", "slurmctld", "slurmd", "sbatch"))


def free_ports(count):
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [each.getsockname()[1] for each in sockets]
    for each in sockets:
        each.close()
    return ports


class Cluster:
    def __init__(self, folder, environment):
        self.folder = Path(folder)
        self.folder.mkdir()
        # Jobs find the programs where the test does.
        path = environment.get("PATH", os.environ["PATH"]) + ":/usr/sbin:/sbin"
        self.environment = {**environment, "PATH": path, "SLURM_CONF": str(self.folder / "slurm.conf")}
        self.daemons = {}
        self.has_lost_controller = False
        self.asked_nodes = time.monotonic()
        self.write_settings()

    def write_settings(self):
        key = self.folder / "munge.key"
        key.write_bytes(os.urandom(256))
        key.chmod(0o400)
        (self.folder / "state").mkdir()
        host = socket.gethostname()
        user = subprocess.run(["id", "-un"], capture_output=True, text=True, check=True).stdout.strip()
        *ports, controller = free_ports(len(NODES) + 1)
        folder = self.folder
        lines = [
            "ClusterName=test", f"SlurmctldHost={host}(127.0.0.1)", f"SlurmctldPort={controller}", f"SlurmUser={user}",
            f"SlurmdUser={user}", "AuthType=auth/munge", f"AuthInfo=socket={folder}/munge.socket",
            f"StateSaveLocation={folder}/state", f"SlurmdSpoolDir={folder}/spool.%n",
            f"SlurmctldPidFile={folder}/slurmctld.pid", f"SlurmdPidFile={folder}/slurmd.%n.pid",
            f"SlurmctldLogFile={folder}/slurmctld.log", f"SlurmdLogFile={folder}/slurmd.%n.log",
            "ProctrackType=proctrack/linuxproc", "TaskPlugin=task/none", "JobAcctGatherType=jobacct_gather/none",
            "AccountingStorageType=accounting_storage/none", "SelectType=select/cons_tres", "SelectTypeParameters=CR_CPU",
            "SwitchType=switch/none", "MpiDefault=none", "ReturnToService=2", "SlurmdTimeout=20", "KillWait=2",
            "JobRequeue=1", "MailProg=/bin/true", "SchedulerParameters=batch_sched_delay=0,sched_interval=2,requeue_delay=1",
            "SlurmdParameters=config_overrides", "BatchStartTimeout=1",
        ]
        for node, port in zip(NODES, ports):
            (self.folder / f"spool.{node}").mkdir()
            lines.append(f"NodeName={node} NodeHostname={host} NodeAddr=127.0.0.1 Port={port} CPUs=1 State=UNKNOWN")
        lines.append(f"PartitionName=all Nodes={','.join(NODES)} Default=YES MaxTime=INFINITE State=UP")
        (self.folder / "slurm.conf").write_text("\n".join(lines) + "\n")

    def command(self, name):
        settings = str(self.folder / "slurm.conf")
        if name == "munged":
            return ["munged", "--foreground", "--force", f"--socket={self.folder}/munge.socket",
                    f"--key-file={self.folder}/munge.key", f"--pid-file={self.folder}/munge.pid",
                    f"--log-file={self.folder}/munge.log", f"--seed-file={self.folder}/munge.seed"]
        if name == "slurmctld":
            return ["slurmctld", "-D", "-f", settings]
        return ["slurmd", "-D", "-N", name, "-f", settings]

    def start(self, name):
        with open(self.folder / f"{name}.said", "ab") as said:
            self.daemons[name] = subprocess.Popen(self.command(name), env=self.environment, stdin=subprocess.DEVNULL,
                                                  stdout=said, stderr=said)

    def kill(self, name):
        self.daemons[name].kill()
        self.daemons[name].wait()
        self.has_lost_controller = self.has_lost_controller or name == "slurmctld"

    def hasten(self):
        """Lets tasks that were started again begin at once: Slurm would leave them two minutes. As long as that takes a
        controller to ask the nodes what they still run: it has forgotten what ended just before it was killed."""
        if self.has_lost_controller and time.monotonic() > self.asked_nodes + 5:
            self.ask("scontrol", "reconfigure")
            self.asked_nodes = time.monotonic()
        for line in self.ask("squeue", "--noheader", "--states=PENDING", "--array", "--format=%i %r").splitlines():
            task, _, reason = line.partition(" ")
            if reason not in ("Resources", "Priority", "Dependency"):
                self.ask("scontrol", "update", f"JobId={task}", "StartTime=now")

    def wait_until_saved(self):
        """Until the controller has written down the jobs that it knows: it takes its time, and forgets what it has not."""
        now = time.time()
        jobs = self.folder / "state" / "job_state"
        self.wait_for(lambda: (jobs.exists() and jobs.stat().st_mtime >= now) or not self.ask("squeue", "--noheader"),
                      "the controller saves its jobs")

    def __enter__(self):
        self.start("munged")
        self.wait_for(lambda: (self.folder / "munge.socket").exists(), "munged listens")
        for name in ["slurmctld", *NODES]:
            self.start(name)
        self.wait_for(lambda: self.ask("sinfo", "--noheader", "--Node", "--format=%T").split() == ["idle"] * len(NODES),
                      "all nodes are idle")
        return self

    def __exit__(self, *_):
        self.ask("scancel", "--user", str(os.getuid()))
        for name in list(self.daemons):
            self.kill(name)
        # What a daemon that was killed has left running: those of this cluster name its folder.
        for process in Path("/proc").iterdir():
            try:
                is_ours = process.name.isdigit() and f"SLURM_CONF={self.folder}/".encode() in (process / "environ").read_bytes()
                if is_ours and int(process.name) != os.getpid():
                    os.kill(int(process.name), 9)
            except (OSError, ValueError):
                continue

    def ask(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, text=True).stdout

    def wait_for(self, condition, what, deadline=120):
        end = time.monotonic() + deadline
        while not condition():
            if time.monotonic() > end:
                said = "".join(each.read_text(errors="replace") for each in sorted(self.folder.glob("*.said")))
                raise AssertionError(f"not within {deadline} s: {what}\n{said[-4000:]}")
            time.sleep(0.05)
