// What the launcher asks of a host beside files and failure texts: one child on two pipes, one place to wait
// for all that can happen, and the folder that it works in.
#pragma once

#include <cstddef>
#include <cstdint>

// The two pipes between launcher and agent. An end is a number as it can stand on a command line; 0 is an end
// that is closed.
struct agent_pipes {
    int32_t read, write;             // the launcher's ends, which no child inherits
    int32_t agent_read, agent_write; // the agent's
};

enum event_kind {
    EVENT_TIMEOUT,
    EVENT_STOP,     // the host wants the launcher to end; told once each time
    EVENT_BYTE,     // from the agent
    EVENT_PIPE_END, // the agent can say nothing more
    EVENT_EXIT,     // the agent has ended, and is forgotten by the host
};

struct launcher_event {
    event_kind kind;
    uint8_t byte;
    int32_t status; // of the exit; a death by signal n is 128 + n
};

inline constexpr int64_t WAIT_FOR_EVER = -1;

// Each call that fails leaves its reason in last_error().
struct launcher_ops {
    // Runs the body as the host runs a service, or at once where a console has started the program, and
    // returns what the body returns. Until then a stop of the host is an event and ends nothing by itself.
    int (*serve)(int (*body)());
    // A clock that nobody sets.
    int64_t (*now_ms)();
    // A line for the administrator; `trouble` is one that should reach the host's log.
    void (*tell)(bool trouble, const char *text);

    // Registers the launcher as a service that the host starts with these words, ended by an absent one, the
    // first being the launcher's path; and stops it and takes it out again. Absent, or what has failed.
    // Optional: absent where files say what the services are.
    const char *(*install)(const char *const *words);
    const char *(*uninstall)();

    // Where the program is kept unless the command line says otherwise.
    bool (*default_folder)(char *buffer, size_t size);
    bool (*full_path)(const char *path, char *buffer, size_t size);
    // Makes the folder the working directory. False as well where it is not safe to run a program there.
    bool (*enter_folder)(const char *path);
    // Holds the file of this name, made where it is missing, against another launcher, until the process
    // ends.
    bool (*lock_folder)(const char *name);

    bool (*make_pipes)(agent_pipes *out);
    void (*close_end)(int32_t end);
    bool (*write_byte)(int32_t end, uint8_t byte);
    // Starts the program of the working directory; it inherits the agent's ends under their numbers. The
    // words end with an absent one, and the first is the program. False as well where the file is no program.
    bool (*start)(const char *const *words, const agent_pipes *pipes, int64_t *out_process);
    // Ends the process by force; its exit is still an event.
    void (*kill)(int64_t process);
    // The next event. What the agent has said before its end comes before its end. Without an end to read
    // from or without a process, those are 0.
    launcher_event (*wait)(int32_t read_end, int64_t process, int64_t milliseconds);
};

extern const launcher_ops launcher_ops_host;
extern const launcher_ops *launcher_host;
