// A system bus with a systemd on it, both made up, behind a socket of this test: as much of D-Bus
// (message protocol 1, EXTERNAL authentication) as the service checks call for.
#pragma once

#include "fakes/temp_folder.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

struct bus_reader;
struct bus_writer;

struct fake_unit {
    std::string name;
    std::string description = "Some unit";
    std::string load_state = "loaded";
    std::string active_state = "active";
};

struct fake_bus {
    fake_bus();
    ~fake_bus();
    fake_bus(const fake_bus &) = delete;
    fake_bus &operator=(const fake_bus &) = delete;

    // The socket is there from here on, and agents find it.
    void start();

    // To be set before the start.
    bool silent = false; // takes connections and says nothing
    bool has_systemd = true;
    std::vector<fake_unit> units;                           // loaded ones, of all kinds
    std::vector<std::pair<std::string, std::string>> files; // paths and states
    std::set<std::string> unanswered;                       // methods that nothing comes back from
    std::map<std::string, std::string> errors;              // names of errors, by method
    std::map<std::string, std::string> cut_signatures;      // false types of answers, by method

    temp_folder folder;
    std::atomic<int> connections = 0;
    std::vector<std::string> calls; // to be read after stop()

    // Waits until the last client has gone.
    void stop();

private:
    void serve();
    void serve_client(int client);
    std::string answer_to(const std::string &member, bus_reader *arguments, bus_writer *body) const;
    bool answer_call(int client, const std::string &message);

    int door = -1;
    int stopping[2] = {-1, -1};
    std::thread thread;
};
