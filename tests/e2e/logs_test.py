"""Logs, from the file in which the administrator names them to the server's store."""
import os
import re
import textwrap
from pathlib import Path

from programs import NOTHING_ELSE, ProgramsTest, main, wait_until

PAGE = Path(__file__).resolve().parents[2] / "docs" / "tnserver.md"

# A check a second, and checkins only when a test forces them.
POLICY = """
checkin = "1 h"
[[log]]
path = "*"
frequency = 1
"""

OWN_RULES = r"""
checkin = "1 h"

[[forward]]
name = "security"
frequency = 1
rules = [{clause = "'root'", status = "alert"}]

[[log]]
path = "*/app.log"
frequency = 1
separator = "\n--\n"
inclusion = "closes"

[[log.rules]]
clause = "'login' and not 'guest'"
decision = "copyto"
destination = "security"

[[log.rules]]
clause = "'odd'"
decision = "quiet"
status = "warn"

[[log.rules]]
clause = "'login' # whoever it was"
status = "warn"

[[log]]
path = "*/other.log"
enabled = false
"""


class Logs(ProgramsTest):
    def start(self, policy: str, *names: str) -> None:
        """An agent that follows logs of these names from now on."""
        self.server = self.new_server(policy=policy + NOTHING_ELSE)
        conf = self.folder / "logs.conf"
        conf.write_text("# what the agent offers\n" + "".join(f"{self.log(name)}\n" for name in names))
        self.agent = self.new_agent(self.server, log_chk_conf=conf).start()
        self.agent.wait_for("Instructed by server to perform ", 2)  # at the start, and behind the scan
        self.wait_for_checks()

    def log(self, name: str) -> Path:
        return self.folder / name

    def write(self, name: str, text: str, encoding: str = "utf-8") -> None:
        with open(self.log(name), "a", encoding=encoding, newline="") as log:
            log.write(text)

    def wait_for_checks(self) -> None:
        """Until each log has been checked anew: the first of two checks from now on may have begun before."""
        paths = self.server.rows("SELECT path FROM checks WHERE configured = 1 AND family = 'log'")
        names = [re.split(r"(?<!\\)\.", path)[-1].replace("\\.", ".") for (path,) in paths]

        def runs() -> dict[str, int]:
            return {name: len(self.agent.check_times().get(name, [])) for name in names}

        before = runs()
        wait_until(lambda: all(now >= before[name] + 2 for name, now in runs().items()), f"two checks of {names}")

    def told(self, name: str = "", value: str = "value") -> list[tuple]:
        """What was told of a log beyond that it was looked at, in the order of arrival."""
        self.wait_for_checks()
        self.agent.deliver()
        return self.server.rows(f"SELECT status, {value} FROM results JOIN checks ON checks.id = check_id "
                                "WHERE family = 'log' AND checks.name LIKE ? AND (value <> '' OR status <> 0) "
                                "ORDER BY results.id", f"%{name}")

    def test_are_offered_and_configured(self):
        self.log("app.log").touch()
        self.start(POLICY, "app.log", "other.log")
        self.assertEqual(self.server.rows("SELECT key FROM devices WHERE type = 9 ORDER BY key"),
                         [("app.log",), ("other.log",)])
        self.assertEqual(self.server.rows("SELECT kind, frequency FROM checks WHERE configured = 1 AND family = 'log'"),
                         [("log", 1), ("log", 1)])

    def test_tell_errors_and_warnings_by_the_built_in_rules(self):
        self.write("app.log", "an error of yesterday\n")
        self.start(POLICY, "app.log")
        self.write("app.log", "started\nan error: no disk\r\na warning\n0 errors\n")
        self.assertEqual(self.told(), [(2, "an error: no disk"), (1, "a warning")])
        self.assertIn(f"{self.log('app.log')}  alert    an error: no disk", self.server.text())

    def test_are_followed_through_a_rotation(self):
        self.log("app.log").touch()
        self.start(POLICY, "app.log")
        self.write("app.log", "error 1\n" + "x" * 200 + "\n")
        self.assertEqual(self.told(), [(2, "error 1")])
        os.rename(self.log("app.log"), self.log("app.log.1"))
        self.write("app.log", "error 2\n")
        self.assertEqual(self.told(), [(2, "error 1"), (2, "error 2")])

    def test_obey_rules_and_forward_groups(self):
        self.log("app.log").touch()
        self.start(OWN_RULES, "app.log", "other.log")
        self.write("app.log", "login of root\nfrom afar\n--\nlogin of guest\n--\nan odd one\n--\nnothing\n--\n")
        self.write("other.log", "an error\n")
        self.assertEqual(self.told("/forward.security"), [(2, "login of root\nfrom afar\n--\n")])
        self.assertEqual(self.told("app.log"), [(1, "login of root\nfrom afar\n--\n"), (1, "login of guest\n--\n"),
                                                (1, "")])
        self.assertEqual(self.told("other.log"), [])
        self.assertRegex(self.server.text(), r"/forward/security +alert +login of root\\nfrom afar\\n--")

    def test_tell_that_they_are_silent(self):
        self.log("app.log").touch()
        self.start(POLICY + "warn_silence = 2\nalert_silence = 4\n", "app.log")
        silent = "Log silent for 0 hours and 0 minutes"
        wait_until(lambda: self.told() == [(1, silent), (2, silent)], "both limits")
        self.write("app.log", "an error\n")
        wait_until(lambda: self.told()[2:4] == [(2, "an error"), (1, silent)], "the end of the silence")

    def test_keep_bytes_of_any_encoding(self):
        self.log("app.log").touch()
        self.start(POLICY, "app.log")
        text = "error: Größe \x1b[2J"
        self.write("app.log", text + "\n", encoding="latin-1")
        self.assertEqual(self.told(value="hex(value)"), [(2, text.encode("latin-1").hex().upper())])
        self.assertIn(r"error: Gr\xF6\xDFe \x1B[2J", self.server.text())


class Documentation(ProgramsTest):
    def test_shows_policies_that_the_server_takes(self):
        blocks = re.findall(r"\n\n((?:    .*\n|\n)+)", PAGE.read_text())
        policies = [textwrap.dedent(block) for block in blocks if "\n    [[" in "\n" + block]
        self.assertGreater(len(policies), 2)
        for number, policy in enumerate(policies):
            with self.subTest(policy=policy):
                self.new_server(f"server{number}", policy=policy)


if __name__ == "__main__":
    main()
