#include "core/support/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace holdenmere {
namespace {

std::vector<char*> pointers(const std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
    for (const auto& value : strings) result.push_back(const_cast<char*>(value.c_str()));
    result.push_back(nullptr);
    return result;
}

}  // namespace

SpawnSetup::SpawnSetup() {
    note(::posix_spawn_file_actions_init(&actions_));
    actionsMade_ = failure_ == 0;
    const int made = ::posix_spawnattr_init(&attributes_);
    note(made);
    attributesMade_ = made == 0;
}

SpawnSetup::~SpawnSetup() {
    if (actionsMade_) ::posix_spawn_file_actions_destroy(&actions_);
    if (attributesMade_) ::posix_spawnattr_destroy(&attributes_);
}

void SpawnSetup::note(int result) {
    if (failure_ == 0 && result != 0) failure_ = result;
}

SpawnSetup& SpawnSetup::nullDevice(int fd) {
    if (actionsMade_) {
        note(::posix_spawn_file_actions_addopen(&actions_, fd, "/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY,
                                                0));
    }
    return *this;
}

SpawnSetup& SpawnSetup::descriptor(int from, int fd) {
    if (actionsMade_) note(::posix_spawn_file_actions_adddup2(&actions_, from, fd));
    return *this;
}

SpawnSetup& SpawnSetup::onlyNamedDescriptors() {
#if defined(POSIX_SPAWN_CLOEXEC_DEFAULT)
    flags_ |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
    return *this;
}

SpawnSetup& SpawnSetup::ownProcessGroup() {
    flags_ |= POSIX_SPAWN_SETPGROUP;
    if (attributesMade_) note(::posix_spawnattr_setpgroup(&attributes_, 0));
    return *this;
}

SpawnSetup& SpawnSetup::ownSession() {
#if defined(POSIX_SPAWN_SETSID)
    flags_ |= POSIX_SPAWN_SETSID;
    return *this;
#else
    return ownProcessGroup();
#endif
}

SpawnSetup& SpawnSetup::defaultSignals(std::initializer_list<int> signals) {
    sigset_t none;
    sigset_t defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int signal : signals) sigaddset(&defaults, signal);
    flags_ |= POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    if (attributesMade_) {
        note(::posix_spawnattr_setsigmask(&attributes_, &none));
        note(::posix_spawnattr_setsigdefault(&attributes_, &defaults));
    }
    return *this;
}

pid_t SpawnSetup::spawn(const std::vector<std::string>& argv, const std::vector<std::string>* environment,
                        int& error) {
    if (attributesMade_) note(::posix_spawnattr_setflags(&attributes_, flags_));
    if (failure_ != 0 || argv.empty()) {
        error = failure_ != 0 ? failure_ : EINVAL;
        return 0;
    }
    auto argvPointers = pointers(argv);
    std::vector<char*> environmentPointers;
    if (environment != nullptr) environmentPointers = pointers(*environment);
    pid_t pid = 0;
    error = ::posix_spawn(&pid, argv.front().c_str(), &actions_, &attributes_, argvPointers.data(),
                          environment != nullptr ? environmentPointers.data() : environ);
    return error == 0 ? pid : 0;
}

}  // namespace holdenmere
