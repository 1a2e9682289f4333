#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace testsupport {

namespace {

// Ends what hangs; nothing that works takes so long.
constexpr auto cTimeLimit = std::chrono::seconds(150);

} // namespace

ChildProcess::ChildProcess(const std::string& path, const std::vector<std::string>& arguments) {
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) {
        std::perror("pipe2");
        std::abort();
    }
    std::vector<char*> words{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    const int error = posix_spawn(&mId, path.c_str(), &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(output[1]);
    mOutput = output[0];
    if (error != 0) {
        errno = error;
        std::perror(path.c_str());
        std::abort();
    }
}

ChildProcess::~ChildProcess() {
    if (!mEnded) {
        kill(mId, SIGKILL);
        waitpid(mId, nullptr, 0);
    }
    close(mOutput);
}

std::string ChildProcess::ReadLine() {
    std::string line;
    const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(cTimeLimit);
    for (;;) {
        pollfd wait = {mOutput, POLLIN, 0};
        char next = 0;
        if (poll(&wait, 1, static_cast<int>(limit.count())) != 1 || read(mOutput, &next, 1) != 1 ||
            next == '\n') {
            return line;
        }
        line += next;
    }
}

void ChildProcess::Signal(int number) const {
    kill(mId, number);
}

bool ChildProcess::IsRunning() {
    int status = 0;
    if (!mEnded && waitpid(mId, &status, WNOHANG) == mId) {
        mEnded = true;
        mResult = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return !mEnded;
}

int ChildProcess::Wait() {
    const auto deadline = std::chrono::steady_clock::now() + cTimeLimit;
    while (IsRunning()) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(mId, SIGKILL);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return mResult;
}

} // namespace testsupport
