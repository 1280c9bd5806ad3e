// Runs a shell command as a test's outside observer: exit status, standard output and standard
// error kept apart.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace mstest {

struct CommandResult {
    int status = -1;  // the exit status; -1 when it did not exit by itself
    std::string out;
    std::string err;
};

inline CommandResult RunCommand(const std::string& command)
{
    CommandResult r;
    char errPath[] = "/tmp/ms-test-stderr-XXXXXX";
    const int fd = mkstemp(errPath);
    if (fd < 0) return r;
    close(fd);
    FILE* pipe = popen(("( " + command + " ) 2>" + errPath).c_str(), "r");
    if (pipe) {
        char buf[4096];
        for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) r.out.append(buf, n);
        const int status = pclose(pipe);
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::ifstream err(errPath, std::ios::binary);
    std::ostringstream text;
    text << err.rdbuf();
    r.err = text.str();
    unlink(errPath);
    return r;
}

}  // namespace mstest
