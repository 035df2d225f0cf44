"""What README.md's "Install" says, done by a new user whose services a real systemd --user manages."""

import json
import os
import re
import subprocess
import unittest
from pathlib import Path

import stillora
from stillora import hold_times, run

BUILD = os.environ["STILLORA_BUILD"]
SOURCE = Path(__file__).resolve().parents[2]
IN_USER_SESSION = SOURCE / "tests/support/in-user-session"

# How open systemd holds the unit to be, of 10. The rest is what photos and movies anywhere in the user's reach need, and
# that it takes the user of a user's service for root.
MOST_EXPOSURE = 1.0
WHAT_STAYS_EXPOSED = {"RootDirectoryOrRootImage", "UserOrDynamicUser", "RestrictAddressFamilies_AF_UNIX", "ProtectSystem",
                      "ProtectHome", "PrivateTmp", "DeviceAllow", "UMask"}


class UserSessionTest(stillora.TestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        os.chmod(cls.shared, 0o755)
        cls.photos = stillora.pictures(cls.shared / "photos", 6)

    def setUp(self):
        super().setUp()
        os.chmod(self.folder, 0o755)

    def install(self, prefix):
        run("cmake", "--install", BUILD, "--prefix", prefix)

    def as_user(self, script, **environment):
        """What the script, run by a new user in `self.home`, writes to standard output."""
        result = subprocess.run([IN_USER_SESSION, self.home, "bash", "-euc", script], stdin=subprocess.DEVNULL,
                                capture_output=True, text=True, timeout=stillora.DEADLINE, env={**os.environ, **environment})
        if result.returncode == 77:
            self.skipTest(result.stderr.strip())
        log = self.home / "manager.log"
        self.assertEqual(result.returncode, 0,
                         result.stdout + result.stderr + (log.read_text(errors="replace") if log.exists() else ""))
        return result.stdout

    def lines_of_readme(self):
        """The commands of the section "Install", one by one."""
        text = (SOURCE / "README.md").read_text()
        section = text[text.index("\n## Install\n"):]
        section = section[:section.index("\n## ", 1)]
        return [line.split(" #")[0].strip() for block in re.findall(r"```sh\n(.*?)```", section, re.DOTALL)
                for line in block.splitlines()]

    def test_the_lines_of_the_readme_work_for_a_new_user(self):
        lines = self.lines_of_readme()
        install = [line for line in lines if line.startswith("cmake --install")]
        self.assertEqual(install, ["cmake --install build/release --prefix ~/.local"])
        self.install(self.home / ".local")
        # The others, as they stand there, but without pictures of its own and without a reader.
        others = [line.replace("~/Pictures/Summer", f"'{self.photos[0].parent}' --quality 240")
                  for line in lines if re.match(r"stillora|systemctl|man|PATH|export", line)]
        self.assertTrue(any("systemctl --user enable --now app.stillora.VideoCreator.socket" in line for line in others))
        example = SOURCE / "docs/examples/make-movie.py"
        (self.home / "make-movie.py").write_bytes(example.read_bytes())
        photos = " ".join(f"'{photo}'" for photo in self.photos)
        said = self.as_user("\n".join(["export MANPAGER=cat", *others, "mkdir saved",
                                       f'/usr/bin/python3 make-movie.py "$XDG_RUNTIME_DIR/app.stillora.VideoCreator" saved {photos}',
                                       "systemctl --user show --property=NAccepted app.stillora.VideoCreator.socket"]))
        self.assertIn("NAccepted=1\n", said)
        self.assertIn("make movies of photos", said)
        by_command, = (self.home / "Movies/Stillora").glob("*.mov")
        by_unit, = (self.home / "saved").glob("*.mov")
        for movie in (by_command, by_unit):
            self.assertEqual(len(hold_times(movie)), 6)

    def test_the_unit_takes_away_what_the_service_does_not_need(self):
        self.install(self.home / ".local")
        probe = self.home / "probe"
        # In place of the service, with the same unit.
        probe.write_text(f"""#!/bin/bash
            exec 2>"$HOME/reasons"
            {{
            for kind in net mnt user uts ipc; do
                [ "$(readlink /proc/self/ns/$kind)" = "$(cat "$HOME/$kind")" ] && echo $kind shared || echo $kind own
            done
            echo privileges $(sed -n 's/^CapBnd:[[:space:]]*0*//p' /proc/self/status) $(sed -n 's/^NoNewPrivs:[[:space:]]*//p' /proc/self/status)
            echo devices $(ls /dev | grep -cE '^(fuse|kmsg|mem|tty0|vd|sd|nvme)')
            touch /etc/gone /usr/gone 2>/dev/null; echo system $?
            touch "$HOME/written"; echo home $?
            cat "$HOME/.ssh/id"; echo keys $?
            touch "$HOME/.config/new" "$HOME/.bashrc" "$HOME/.local/bin/new"; echo login $?
            ls "$XDG_RUNTIME_DIR/systemd" >/dev/null; echo manager $?
            echo dumps $(ulimit -c)
            }} >"$HOME/findings"
        """)
        probe.chmod(0o755)
        unit = self.home / ".local/share/systemd/user/app.stillora.VideoCreator@.service"
        text = unit.read_text()
        changed = re.sub(r"^ExecStart=.*$", f"ExecStart={probe}", text, flags=re.MULTILINE)
        self.assertNotEqual(changed, text)
        unit.write_text(changed)
        self.as_user("""
            mkdir -p .ssh .config .local/bin; touch .ssh/id .bashrc
            for kind in net mnt user uts ipc; do readlink /proc/self/ns/$kind >$kind; done
            systemctl --user start app.stillora.VideoCreator.socket
            /usr/bin/python3 -c 'import os, socket
connection = socket.socket(socket.AF_UNIX)
connection.connect(os.environ["XDG_RUNTIME_DIR"] + "/app.stillora.VideoCreator")
connection.settimeout(60)
try:
    connection.recv(1)
except ConnectionResetError:
    pass'
        """)
        findings = (self.home / "findings").read_text().splitlines()
        self.assertEqual(findings, ["net own", "mnt own", "user own", "uts own", "ipc own", "privileges 1", "devices 0", "system 1", "home 0",
                                    "keys 1", "login 1", "manager 2", "dumps 0"],
                         (self.home / "reasons").read_text())

    # A client that connects, and hears whether a service is there: it answers the first line of the handshake.
    GREET = """/usr/bin/python3 -c 'import os, socket
connection = socket.socket(socket.AF_UNIX)
connection.connect(os.environ["XDG_RUNTIME_DIR"] + "/app.stillora.VideoCreator")
connection.settimeout(60)
try:
    connection.sendall(b"\\0AUTH EXTERNAL " + str(os.getuid()).encode().hex().encode() + b"\\r\\n")
    print("answered" if connection.recv(100).startswith(b"OK") else "hung up")
except (ConnectionResetError, BrokenPipeError):
    print("hung up")'"""

    def test_a_machine_without_user_namespaces_needs_the_drop_in(self):
        self.install(self.home / ".local")
        drop_in = ".config/systemd/user/app.stillora.VideoCreator@.service.d"
        said = self.as_user(f"""
            systemctl --user start app.stillora.VideoCreator.socket
            {self.GREET}
            mkdir -p {drop_in}
            cp .local/share/stillora/without-user-namespaces.conf {drop_in}
            systemctl --user daemon-reload
            {self.GREET}
        """, WITHOUT_USER_NAMESPACES="yes")
        self.assertEqual(said.splitlines(), ["hung up", "answered"])

    def test_the_unit_starts_the_service(self):
        self.install(self.home / ".local")
        unit = self.home / ".local/share/systemd/user/app.stillora.VideoCreator@.service"
        text = unit.read_text()
        unit.write_text(text.replace("StandardError=journal", f"StandardError=append:{self.home}/log"))
        said = self.as_user(f"systemctl --user start app.stillora.VideoCreator.socket\n{self.GREET}")
        self.assertEqual(said.splitlines(), ["answered"])
        # The unit leaves it what it takes from itself.
        self.assertNotIn("cannot", (self.home / "log").read_text().replace("keep a process from files", ""))

    def test_systemd_holds_the_unit_to_be_little_exposed(self):
        self.install(self.home / "prefix")
        unit = self.home / "prefix/share/systemd/user/app.stillora.VideoCreator@.service"

        def analyzed(*arguments):
            result = subprocess.run(["systemd-analyze", "security", "--offline=true", "--user", "--no-pager", *arguments, unit],
                                    stdin=subprocess.DEVNULL, capture_output=True, text=True, env=self.environment(),
                                    timeout=stillora.DEADLINE)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
            return result.stdout

        said = analyzed(f"--threshold={MOST_EXPOSURE * 10:.0f}")
        exposure = re.search(r"Overall exposure level for .*: ([\d.]+) ", said)
        self.assertIsNotNone(exposure, said)
        self.assertLessEqual(float(exposure[1]), MOST_EXPOSURE, said)
        exposed = {each["json_field"] for each in json.loads(analyzed("--json=short")) if each["exposure"] is not None}
        self.assertEqual(exposed, WHAT_STAYS_EXPOSED)


if __name__ == "__main__":
    unittest.main(verbosity=2)
