#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace holdenmere {

// How a child process is to start: its standard descriptors, its process
// group or session, its signal state. Owns the posix_spawn attributes and
// file actions and frees them however the start ends; a step that could not
// be set up makes spawn() fail with that step's error rather than start a
// process set up by halves.
class SpawnSetup {
public:
    SpawnSetup();
    ~SpawnSetup();
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    // `fd` in the child reads (standard input) or writes /dev/null.
    SpawnSetup& nullDevice(int fd);
    // `fd` in the child is this process's `from`.
    SpawnSetup& descriptor(int from, int fd);
    // Where the system can (macOS), only the descriptors named here reach
    // the child; elsewhere the caller's descriptors are close-on-exec.
    SpawnSetup& onlyNamedDescriptors();
    // A process group of its own, so that a signal to the group reaches the
    // child's own children too.
    SpawnSetup& ownProcessGroup();
    // A session of its own where the system offers one (else a process
    // group), so that the child outlives this process and its terminal.
    SpawnSetup& ownSession();
    // No blocked signals, and these back at their default dispositions,
    // whatever this process set up for itself.
    SpawnSetup& defaultSignals(std::initializer_list<int> signals);

    // Starts argv[0] with `argv` and `environment` ("NAME=value" strings;
    // this process's own when null). The pid, or 0 with the error number in
    // `error`.
    pid_t spawn(const std::vector<std::string>& argv, const std::vector<std::string>* environment, int& error);

private:
    void note(int result);

    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
    bool actionsMade_ = false;
    bool attributesMade_ = false;
    short flags_ = 0;
    int failure_ = 0;  // the first step that failed
};

}  // namespace holdenmere
