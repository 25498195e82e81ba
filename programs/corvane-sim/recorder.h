// Writes every received request as one JSON line, at once, so that a reader can follow the file.
#pragma once

#include "methods.h"

#include <cstdio>
#include <memory>
#include <string>

namespace corvane_sim {

class Recorder {
public:
    /** @param path empty: nothing is recorded. @throws std::runtime_error if the file cannot be written. */
    explicit Recorder(const std::string &path);

    /** @param time seconds since the start. */
    void Write(double time, AgentKind agent, const Request &request);
    /** A request that is no JSON. */
    void WriteUnreadable(double time, AgentKind agent, const std::string &text);

private:
    struct FileClose {
        void operator()(std::FILE *file) const noexcept { (void)std::fclose(file); }
    };

    void WriteLine(const cJSON *line);

    std::string path_;
    std::unique_ptr<std::FILE, FileClose> file_;
};

} // namespace corvane_sim
