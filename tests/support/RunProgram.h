// Runs a program of this build in a child and collects its exit code and what it wrote, its
// output going to unnamed files (nothing to drain while it runs, and they close with us).
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "ExecProgram.h"

namespace paxtest {

struct Outcome {
    int exitCode = -1;
    std::string out;
    std::string err;

    bool says(const std::string& fragment) const {
        return out.find(fragment) != std::string::npos || err.find(fragment) != std::string::npos;
    }
};

inline std::ostream& operator<<(std::ostream& os, const Outcome& run) {
    return os << "exit " << run.exitCode << "\n--- stdout\n"
              << run.out << "--- stderr\n"
              << run.err;
}

// A program of this build running in a child.
struct Launch {
    pid_t pid = -1;
    std::unique_ptr<FILE, int (*)(FILE*)> files[3] = {
            {std::tmpfile(), fclose}, {std::tmpfile(), fclose}, {std::tmpfile(), fclose}};

    std::string read(int fd) const {
        std::string text;
        fflush(files[fd].get());
        const long end = ftell(files[fd].get());
        rewind(files[fd].get());
        for (int c; (c = fgetc(files[fd].get())) != EOF;) text.push_back(static_cast<char>(c));
        fseek(files[fd].get(), end, SEEK_SET);
        return text;
    }
};

// `env` entries ("NAME=value") are added to the child's environment.
inline std::unique_ptr<Launch> launch(const char* program, std::vector<std::string> args,
                                      const std::string& input = "",
                                      std::vector<std::string> env = {}) {
    auto started = std::make_unique<Launch>();
    fputs(input.c_str(), started->files[0].get());
    fflush(started->files[0].get());
    rewind(started->files[0].get());
    args.insert(args.begin(), program);
    const paxtest::ChildCommand command(program, args, std::move(env));
    started->pid = fork();
    if (started->pid == 0) {
        for (int fd = 0; fd < 3; ++fd) dup2(fileno(started->files[fd].get()), fd);
        command.exec();
    }
    return started;
}

// Waits for the child to end (killing it after 30 s); its exit code.
inline int exitCodeOf(pid_t pid) {
    int status = 0;
    pid_t done = 0;
    for (int i = 0; i < 3000 && (done = waitpid(pid, &status, WNOHANG)) == 0; ++i) {
        usleep(10'000);
    }
    if (done == 0) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Waits for the child to end and collects what it said.
inline Outcome finish(const Launch& child) {
    Outcome run;
    run.exitCode = exitCodeOf(child.pid);
    run.out = child.read(1);
    run.err = child.read(2);
    return run;
}

}  // namespace paxtest
