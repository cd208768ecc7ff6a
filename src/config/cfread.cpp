// Parser of `key=value` files. Knows the C library and nothing of ours.
#include <sorrel/cfread.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr int kLineSize = 1024;
constexpr std::size_t kMaxText = 255; // of a key and of a value

// What a line is read into.
struct Line {
    char key[kMaxText + 1];
    char value[kMaxText + 1];
};

enum class LineResult { kComplete, kKeyTooLong, kValueTooLong, kNotTerminated };

bool endsLine(char character) {
    return character == '\n' || character == '\r';
}

bool isDropped(char character) {
    return (static_cast<unsigned char>(character) & 0x80U) != 0;
}

// Scans up to the first '=' or the end of the line, and leaves `text` there.
LineResult scanKey(const char*& text, char* key) {
    std::size_t length = 0;
    for (; *text != '=' && !endsLine(*text); ++text) {
        if (*text == '\0') {
            return LineResult::kNotTerminated;
        }
        if (length == kMaxText) {
            return LineResult::kKeyTooLong; // Deliberate: also for a byte that would be dropped.
        }
        if (*text != ' ' && !isDropped(*text)) {
            key[length++] = *text;
        }
    }
    key[length] = '\0';
    return LineResult::kComplete;
}

LineResult scanValue(const char* text, char* value) {
    std::size_t length = 0;
    for (; !endsLine(*text); ++text) {
        if (*text == '\0') {
            return LineResult::kNotTerminated;
        }
        if (isDropped(*text)) {
            continue;
        }
        if (length == kMaxText) {
            return LineResult::kValueTooLong;
        }
        value[length++] = *text;
    }
    value[length] = '\0';
    return LineResult::kComplete;
}

LineResult scanLine(const char* text, Line& line) {
    line.value[0] = '\0';
    const LineResult keyResult = scanKey(text, line.key);
    if (keyResult != LineResult::kComplete || *text != '=') {
        return keyResult;
    }
    ++text;
    while (*text == ' ') {
        ++text;
    }
    return scanValue(text, line.value);
}

// Reports a line that cannot be used. True when it can.
bool accepted(LineResult result, const char* fileName, int lineNumber) {
    switch (result) {
    case LineResult::kComplete:
        return true;
    case LineResult::kKeyTooLong:
        syslog(LOG_ERR, "cfread: max. key length exceeded in %s at line %d", fileName, lineNumber);
        return false;
    case LineResult::kValueTooLong:
        syslog(LOG_ERR, "cfread: max. value length exceeded in %s at line %d", fileName, lineNumber);
        return false;
    case LineResult::kNotTerminated:
        syslog(LOG_ERR, "cfread: non-terminated entry in %s at line %d", fileName, lineNumber);
        return false;
    }
    return false;
}

enum class Step { kGoOn, kStop, kFail };

// Hands a line to the callback, or to the table when there is none.
Step deliver(cfread_handle& handle, const Line& line, int lineNumber) {
    const bool empty = line.key[0] == '\0' || line.value[0] == '\0';
    if (handle.callback != nullptr) {
        if (empty && !handle.report_empty) {
            return Step::kGoOn;
        }
        return handle.callback(line.key, line.value, handle.user_data) != 0 ? Step::kStop : Step::kGoOn;
    }
    if (!empty && cfread_set_entry(&handle, line.key, line.value) == nullptr) {
        syslog(LOG_ERR, "cfread: unable to add entry in %s at line %d", handle.file_name, lineNumber);
        return Step::kFail;
    }
    return Step::kGoOn;
}

Step parseLine(cfread_handle& handle, const char* text, int lineNumber) {
    if (text[0] == '#') {
        return Step::kGoOn;
    }
    Line line;
    if (!accepted(scanLine(text, line), handle.file_name, lineNumber)) {
        return Step::kFail;
    }
    return deliver(handle, line, lineNumber);
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileOwner = std::unique_ptr<std::FILE, FileCloser>;

// Regular files, and directories, which fail when they are read. Whatever else could block a reader, a pipe or a
// terminal, is refused, but /dev/null reads as empty.
bool isReadable(int fd) {
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return false;
    }
    const bool isNull = S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
    return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) || isNull;
}

FileOwner openFile(const char* fileName) {
    const int fd = open(fileName, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd == -1) {
        return nullptr;
    }
    FileOwner file(isReadable(fd) ? fdopen(fd, "r") : nullptr);
    if (!file) {
        close(fd);
    }
    return file;
}

// 0, or -1 after an error, which has been reported.
int parseFile(cfread_handle& handle) {
    if (handle.file_name == nullptr || handle.file_name[0] == '\0') {
        syslog(LOG_ERR, "cfread: no config file given");
        return -1;
    }
    const FileOwner file = openFile(handle.file_name);
    if (!file) {
        syslog(LOG_ERR, "cfread: unable to open %s", handle.file_name);
        return -1;
    }
    char text[kLineSize];
    for (int lineNumber = 1; std::fgets(text, sizeof text, file.get()) != nullptr; ++lineNumber) {
        const Step step = parseLine(handle, text, lineNumber);
        if (step != Step::kGoOn) {
            return step == Step::kStop ? 0 : -1; // Deliberate: a callback that stops has not failed.
        }
    }
    if (std::ferror(file.get()) != 0) { // a directory, or a medium that fails: not the end of the file
        syslog(LOG_ERR, "cfread: unable to open %s", handle.file_name);
        return -1;
    }
    return 0;
}

} // namespace

cfread_handle* cfread_open(const char* fileName) {
    auto* const handle = static_cast<cfread_handle*>(std::calloc(1, sizeof(cfread_handle)));
    if (handle == nullptr) {
        return nullptr;
    }
    handle->file_name = fileName;
    if (parseFile(*handle) != 0) {
        cfread_close(handle);
        return nullptr;
    }
    return handle;
}

int cfread_parse_with_callback(const char* fileName, cfread_callback callback, void* userData, int reportEmpty) {
    if (callback == nullptr) {
        cfread_handle* const table = cfread_open(fileName);
        const int rc = table != nullptr ? 0 : -1;
        cfread_close(table);
        return rc;
    }
    cfread_handle handle = {};
    handle.file_name = fileName;
    handle.callback = callback;
    handle.user_data = userData;
    handle.report_empty = (static_cast<unsigned int>(reportEmpty) & 0xffU) != 0;
    return parseFile(handle);
}
