/**
 * @file norlog_file.h
 * @brief The rotating file behind the log. Not thread safe: norlog.cpp holds its lock.
 */
#ifndef NORLOG_FILE_H
#define NORLOG_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

class LogFile {
public:
    LogFile() noexcept;
    ~LogFile();
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

    /** Opens or continues the file in @p folder, which is made if absent. @p reason gets why it failed. */
    bool Open(const char *folder, uint64_t maxBytes, uint32_t backups, char *reason, size_t reasonSize) noexcept;
    void Close() noexcept;
    [[nodiscard]] bool IsOpen() const noexcept { return sink_ != nullptr; }
    /** Writes one line without its newline. @return false if it was not written; then the file may be open no more. */
    bool Write(std::string_view line, bool flush, char *reason, size_t reasonSize) noexcept;
    void Flush() noexcept;

private:
    struct Sink;
    std::unique_ptr<Sink> sink_;
};

#endif
