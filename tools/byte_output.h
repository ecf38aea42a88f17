#pragma once

#include <optional>
#include <string>

#include "services/buffer/obuf.h"
#include "shared/include/object/media_obj.h"
#include "tools/failure.h"

// Where bytes go: a file, which is emptied first, or standard output.
class ByteOutput {
public:
    ByteOutput() = default;
    ByteOutput(const ByteOutput&) = delete;
    ByteOutput& operator=(const ByteOutput&) = delete;
    ~ByteOutput();

    // "-" or the empty text is standard output. Fails: the reason; a file that belongs to `source` is left alone.
    std::optional<Failure> open(const std::string& target, const MediaObj& source);
    // Writes the first `bytes` of the buffer. Answers 0 or an errno value; EINTR once the program is to end.
    int write(const phantom_OBUF* data, unsigned bytes);
    // Answers 0 or an errno value: some file systems tell of a full disk only now.
    int close();

    // For messages.
    const std::string& name() const { return m_name; }
    unsigned long long written() const { return m_written; }

private:
    std::optional<Failure> openFile(const std::string& target, const MediaObj& source);

    std::string m_name;
    int m_fd = -1;
    bool m_owned = false;
    unsigned long long m_written = 0;  // bytes
};
