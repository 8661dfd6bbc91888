"""The Windows agent with a server of this machine, from its settings in the registry to results that were acknowledged."""
import os
import re
import time

from programs import DOMAIN, QUIET_POLICY, wait_until
from windows_programs import VARIABLES, WindowsTest, import_values, main, stored_values

NOBODY = "127.0.0.1:9"
KEYS = "SELECT master_key, hallmark FROM agents"
DAY_S = 86400

# Nobody can force a checkin here, so they come by themselves.
POLICY = """
checkin = 10
[[check]]
name = "fs"
frequency = 3
[[check]]
name = "mem"
frequency = 3
[[check]]
name = "system.*"
frequency = 3
"""


class FirstMeeting(WindowsTest):
    def test_ends_in_acknowledged_results(self):
        server = self.new_server(policy=POLICY)
        agent = self.new_windows_agent(server).start()
        agent.wait_for_checks(rounds=2)
        seen = agent.count("Successful checkin")
        agent.wait_for("Successful checkin", seen + 2)
        agent.kill()
        self.assertNotIn("Agent failed checkin", agent.text())
        self.assert_every_result_once(agent, server)
        self.assertEqual(server.rows("SELECT count(*) FROM results WHERE unsettled <> 0"), [(0,)])

    def test_leaves_in_the_store_what_the_agent_told(self):
        server = self.new_server(policy=POLICY)
        agent = self.new_windows_agent(server).start()
        agent.wait_for_checks()
        self.assertEqual(server.rows("SELECT name, domain, package_id, version, address FROM agents"),
                         [("agent", DOMAIN, 34, "3.8 build 5153", "127.0.0.1")])
        told = dict(server.rows("SELECT label, value FROM host_info"))
        self.assertEqual(told["Platform"], "NT")
        self.assertEqual(told["Architecture"], "x64 (AMD or Intel)")
        self.assertEqual(told["Tarnix agent"], "v.3.8.0 build 5153 on Windows NT (AMD-64)")
        self.assertEqual(told["Hostname"], os.uname().nodename)
        names = {name for (name,) in server.rows("SELECT name FROM checks WHERE configured = 1")}
        self.assertLessEqual({"fs.C:\\", "mem.phys", "mem.swap", "mem.virt", "system.uptime"}, names)

    def test_puts_the_variables_into_the_hive_of_the_settings(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_windows_agent(server).start()
        agent.wait_for("Successful checkin")
        self.assertEqual(stored_values(self.folder, VARIABLES).keys(),
                         {"server_list_conf", "name_conf", "hostkey", "hallmark", "host_id"}
                         | ({"server_list_cluster"} & stored_values(self.folder, VARIABLES).keys()))
        self.assertEqual(agent.variable("server_list_conf"), server.place)
        self.assertEqual(agent.variable("name_conf"), "agent")
        self.assertEqual(server.rows(KEYS), [(agent.variable("hostkey"), agent.variable("hallmark"))])
        self.assertEqual(server.value("SELECT host_id FROM agents"), agent.variable("host_id"))
        self.assertIn("Found key in current user's registry - will store variables there too",
                      agent.stderr.read_text())

    def test_begins_without_variables(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_windows_agent(server).start()
        agent.wait_for("Successful checkin")
        self.assertEqual(agent.count("Unable to read variables: Couldn't create the variable registrykey during read"),
                         1)


class Restart(WindowsTest):
    def test_goes_on_with_the_stored_hallmark(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_windows_agent(server).start()
        agent.wait_for("Successful checkin")
        keys = server.rows(KEYS)
        agent.kill()
        agent.start()
        agent.wait_for("Successful checkin", 2)
        self.assertEqual(server.rows(KEYS), keys)
        self.assertEqual(keys, [(agent.variable("hostkey"), agent.variable("hallmark"))])
        self.assertEqual(server.count("with a new key"), 1)

    def test_reads_what_an_administrator_has_imported(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_windows_agent(server).start()
        agent.wait_for("Successful checkin")
        agent.kill()
        import_values(self.folder, VARIABLES, {"hallmark": "0" * 32})
        agent.start()
        agent.wait_for("probably hallmark is out of sync")


class Log(WindowsTest):
    def test_that_is_too_old_is_renamed_and_opened_again(self):
        agent = self.new_windows_agent(NOBODY, log_days=3, max_log_files=3).start()
        old = agent.log.with_name("agent.log.1.txt")
        agent.wait_for("On hold for ")
        # Wine tells the time of the last write for that of the creation, and the agent asks for it behind the pause.
        past = time.time() - 4 * DAY_S
        os.utime(agent.log, (past, past))
        wait_until(old.exists, "the old log")
        agent.wait_for("Agent reopened logfile...")
        self.assertIn("Tarnix v.3.8.0 build 5153 on Windows NT (AMD-64) Agent reopened logfile...", agent.lines()[0])
        self.assertRegex(old.read_text(), re.compile(r"Re-opening log\.\.\.\n.*Closing logfile\n\Z"))
        agent.wait_for("Failed to register with server.")  # it goes on

    def test_that_is_young_enough_stays(self):
        agent = self.new_windows_agent(NOBODY, log_days=3, max_log_files=3).start()
        agent.wait_for("On hold for ", 2)
        self.assertEqual(agent.count("Re-opening log..."), 0)
        self.assertFalse(agent.log.with_name("agent.log.1.txt").exists())


class CommandLine(WindowsTest):
    def test_tells_the_version(self):
        done = self.new_windows_agent(NOBODY).run("-V")
        self.assertEqual((done.returncode, done.stderr),
                         (0, "\n Tarnix Agent : v.3.8.0 build 5153 on Windows NT (AMD-64)\n\n"))

    def test_ends_in_error_without_settings(self):
        done = self.new_windows_agent(NOBODY).run("-f", "C:\\nothing.conf", "-c", "name")
        self.assertEqual(done.returncode, 1)
        self.assertIn('Cannot open path "SOFTWARE\\Tarnix\\TNAgent": ', done.stderr)
        self.assertRegex(done.stderr, "Fatal error: Unable to read agent configuration.\n$")

    def test_takes_words_that_look_like_patterns_as_they_are(self):
        agent = self.new_windows_agent(NOBODY, options=("-c", "*"))
        agent.start()
        agent.wait_for(f"Tarnix agent name: {DOMAIN}: *")

    def test_asks_for_downtime_without_an_agent(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_windows_agent(server)
        agent.write_settings()
        done = agent.run("--down=5", "--quiet")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stderr, "(?m)^OK ")

    def test_asks_a_running_agent_for_downtime(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_windows_agent(server).start()
        agent.wait_for("Successful checkin")
        done = agent.run("--down=5", "--quiet")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stderr, r"(?m)^OK ")
        agent.wait_for('handle_named_pipe Got "DOWN 5')
        agent.wait_for("handle_named_pipe: Wrote ")


if __name__ == "__main__":
    main()
