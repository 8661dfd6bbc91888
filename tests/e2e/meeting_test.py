"""The first meeting of an agent with a server, up to results."""
import os
import stat

from programs import DOMAIN, POLICY, ProgramsTest, QUIET_POLICY, main, wait_until

NOBODY = "127.0.0.1:9"
WHOLE_POLICY = POLICY + '[[check]]\nname = "system.idle"\nenabled = true\n'


def mode_of(path) -> str:
    return oct(stat.S_IMODE(path.stat().st_mode))


class FirstMeeting(ProgramsTest):
    def test_ends_in_acknowledged_results_of_every_family(self):
        server = self.new_server(policy=WHOLE_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for_checks(rounds=2)
        agent.deliver()
        summary = server.command("summary", "--require", "fs,mem,system")
        self.assertEqual(summary.returncode, 0, summary.stdout)
        self.assertNotIn("Agent failed checkin", agent.text())
        agent.end()
        self.assert_every_result_once(agent, server)
        self.assertEqual(server.rows("SELECT count(*) FROM results WHERE unsettled <> 0"), [(0,)])

    def test_leaves_in_the_store_what_the_agent_told(self):
        server = self.new_server(policy=WHOLE_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for_checks()
        self.assertEqual(server.rows("SELECT name, domain, package_id, version, address FROM agents"),
                         [("agent", DOMAIN, 34, "3.8 build 5153", "127.0.0.1")])
        told = dict(server.rows("SELECT label, value FROM host_info"))
        self.assertEqual((told["Platform"], told["Hostname"]), ("Linux", os.uname().nodename))
        families = {key for (key,) in server.rows("SELECT key FROM groups WHERE parent_id IS NULL")}
        self.assertLessEqual({"fs", "log", "mem", "perf", "proc", "system", "ifthrough", "ifevents"}, families)
        names = {name for (name,) in server.rows("SELECT name FROM checks WHERE configured = 1")}
        self.assertLessEqual({"mem.phys", "mem.swap", "mem.virt", "system.idle", "system.uptime"}, names)
        self.assertEqual(server.value("SELECT count(*) FROM descriptions"), 30)
        self.assertEqual(server.value("SELECT host_id FROM agents"), agent.variable("host_id"))

    def test_keys_are_for_their_owner_alone(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for("Successful checkin")
        self.assertEqual(mode_of(agent.variables), "0o600")
        self.assertEqual(mode_of(agent.variables.parent), "0o700")
        self.assertEqual(mode_of(server.store), "0o600")
        self.assertEqual({mode_of(path) for path in server.store.parent.glob("store.db*")}, {"0o600"})

    def test_agent_without_a_name_goes_by_its_address(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server, name=None).start()
        agent.wait_for("Successful checkin")
        self.assertEqual(server.value("SELECT name FROM agents"), "127.0.0.1")


class Settings(ProgramsTest):
    def test_what_is_not_understood_is_told_with_its_line_once(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server, more_settings="colour = green\nloglevel\n# name = first\nname = later").start()
        agent.wait_for("Successful checkin")
        place = str(agent.settings_file)
        first = agent.settings_file.read_text().splitlines().index("colour = green") + 1
        # The log is still on stderr while the settings are read.
        complaints = [line.split(": ", 1)[1] for line in agent.stderr.read_text().splitlines() if place in line]
        self.assertEqual(complaints, [f'{place}, line {first}: unknown setting "colour"',
                                      f'{place}, line {first + 1}: no "=" in "loglevel"',
                                      f'{place}, line {first + 3}: setting "name" is given again'])
        self.assertEqual(server.value("SELECT name FROM agents"), "later")

    def test_list_of_servers_from_the_server_outlives_a_restart(self):
        server = self.new_server(policy=f'servers = ["{NOBODY}"]\n{QUIET_POLICY}')
        agent = self.new_agent(server).start()
        wait_until(lambda: agent.variable("server_list_cluster") == NOBODY + ",", "the server's list")
        agent.end()
        seen = agent.count("Talking to server: ")
        agent.start()
        agent.wait_for("Talking to server: ", seen + 1)
        self.assertEqual(agent.last("Talking to server: "), NOBODY)

    def test_changed_list_of_servers_wins_over_the_servers_own(self):
        server = self.new_server(policy=f'servers = ["{NOBODY}"]\n{QUIET_POLICY}')
        agent = self.new_agent(server).start()
        wait_until(lambda: agent.variable("server_list_cluster"), "the server's list")
        agent.end()
        agent.settings["server_list"] += ","
        agent.start()
        server.wait_for("has started")


if __name__ == "__main__":
    main()
