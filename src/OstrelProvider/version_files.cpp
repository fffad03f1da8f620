#include "OstrelProvider/service.h"

#include "OstrelProvider/log.h"
#include "common/blank.h"
#include "common/file_reader.h"

namespace {

// The first word, cut to the buffer's size. `operation` is the caller's name in messages.
int read_version_word(const char* operation, const char* path, char* buffer) {
    oxr::FileReader file(path);
    if (!file.opened()) {
        OXR_ERROR_IN(operation, "cannot open file to read version from.");
        return -1;
    }
    int c = file.next();
    while (c >= 0 && oxr::is_blank(static_cast<char>(c))) {
        c = file.next();
    }
    if (c < 0) {
        OXR_ERROR_IN(operation, "EOF got while reading version from file");
        return -1;
    }
    for (std::size_t length = 0; length < VERSION_TEXT_SIZE - 1 && c >= 0 && !oxr::is_blank(static_cast<char>(c));
         ++length, c = file.next()) {
        buffer[length] = static_cast<char>(c);
    }
    return 1;
}

}  // namespace

int getOxdVersion(char* buffer) {
    return read_version_word(__func__, "/etc/ostrel/oxdversion.txt", buffer);
}

int getPspVersion(char* buffer) {
    return read_version_word(__func__, "/etc/ostrel/pspversion.txt", buffer);
}
