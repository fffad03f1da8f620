#include "oxrctl/status/log_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "common/descriptor.h"
#include "common/regular_file.h"
#include "oxrctl/command.h"
#include "oxrctl/status/log_lines.h"

namespace oxrctl {

namespace {

constexpr int OLDEST_FILE = 6;
constexpr off_t FIRST_END_BYTES = 256 << 10;
constexpr int PASSES_OF_AN_END = 4;

// A file of the rotation, open.
struct OpenFile {
    std::string name;
    int number = 0;  // 0: the log itself
    std::unique_ptr<oxr::Descriptor> descriptor;
    off_t size = 0;
    std::string problem;
};

std::string open_problem(int error, int number) {
    return error == EISDIR && number == 0      ? "neither oxr.log nor a folder with one is in it"
           : error == EISDIR || error == ENXIO ? "not a regular file"
                                               : std::strerror(error);
}

// All of them are opened before the first is read, so that a rotation in between moves none away.
std::vector<OpenFile> open_files(const std::string& file) {
    std::vector<OpenFile> files;
    for (int number = OLDEST_FILE; number >= 0; --number) {
        OpenFile each{number == 0 ? file : fmt::format("{}.{}", file, number), number, nullptr, 0, ""};
        const int descriptor = oxr::open_regular_file(each.name.c_str(), O_RDONLY, &each.size);
        const int error = descriptor >= 0 ? 0 : errno;
        each.descriptor = std::make_unique<oxr::Descriptor>(descriptor);
        if (error == ENOENT && number > 0) {
            continue;
        }
        if (error != 0) {
            each.problem = open_problem(error, number);
        }
        files.push_back(std::move(each));
    }
    if (!files.back().problem.empty()) {
        throw Refusal(fmt::format("{}: {}", file, files.back().problem));
    }
    return files;
}

std::vector<std::string> gaps(const std::vector<OpenFile>& files) {
    std::vector<std::string> notes;
    for (std::size_t i = 1; i < files.size(); ++i) {
        for (int number = files[i - 1].number - 1; number > files[i].number; --number) {
            notes.push_back(fmt::format("{}.{} is missing between its neighbours: what it told is not known",
                                        files.back().name, number));
        }
    }
    return notes;
}

// Reads a file from `from` on, which may be in mid-line.
void read_file(OpenFile& file, off_t from, StoryReader& reader) {
    if (::lseek(file.descriptor->get(), std::max<off_t>(from - 1, 0), SEEK_SET) < 0) {
        file.problem = std::strerror(errno);
        return;
    }
    LineReader lines(file.descriptor->get());
    std::string_view line;
    if (from > 0) {
        (void)lines.next(line);
    }
    while (lines.next(line)) {
        reader.take(line);
    }
    file.problem = lines.error() == 0 ? "" : std::strerror(lines.error());
}

void note_steps_back(LogReading& reading) {
    if (reading.story.steps_back > 0) {
        reading.notes.push_back(
            fmt::format("the time goes back in {}: files in the wrong order, or the clock was set back",
                        count_of(static_cast<std::size_t>(reading.story.steps_back), "place", "places")));
    }
}

// Reads the last `bytes` bytes of the files together.
LogReading read_end(std::vector<OpenFile>& files, off_t bytes, LogPosition since, const std::string& naming) {
    LogReading reading;
    reading.notes = gaps(files);
    StoryReader reader(since, naming);
    off_t behind = 0;
    for (const OpenFile& file : files) {
        behind += file.size;
    }
    for (OpenFile& file : files) {
        behind -= file.size;
        const off_t wanted = std::min(std::max<off_t>(bytes - behind, 0), file.size);
        if (file.problem.empty() && (wanted > 0 || file.number == 0)) {
            read_file(file, file.size - wanted, reader);
        }
        reading.files.push_back({file.name, file.problem});
    }
    reading.story = reader.finish();
    note_steps_back(reading);
    return reading;
}

// Whether what came before could change the judgement.
bool tells_enough(const Story& story, LogPosition since) {
    const bool counts_all = since.time == NO_TIME || story.first < since.time;
    return counts_all && story.passes >= PASSES_OF_AN_END && !story.last_good_pass.empty() && story.pass_seconds >= 0;
}

LogReading read_standard_input(LogPosition since, const std::string& naming) {
    LogReading reading;
    StoryReader reader(since, naming);
    LineReader lines(STDIN_FILENO);
    std::string_view line;
    while (lines.next(line)) {
        reader.take(line);
    }
    reading.files.push_back({"-", lines.error() == 0 ? "" : std::strerror(lines.error())});
    reading.story = reader.finish();
    note_steps_back(reading);
    return reading;
}

}  // namespace

LogReading read_log(const std::string& file, HowMuch how_much, LogPosition since, const std::string& naming) {
    if (file == "-") {
        return read_standard_input(since, naming);
    }
    std::vector<OpenFile> files = open_files(file);
    off_t all = 0;
    for (const OpenFile& each : files) {
        all += each.size;
    }
    if (how_much == HowMuch::end) {
        for (off_t bytes = FIRST_END_BYTES; bytes < all; bytes *= 4) {
            LogReading reading = read_end(files, bytes, since, naming);
            if (tells_enough(reading.story, since)) {
                return reading;
            }
        }
    }
    return read_end(files, all, since, naming);
}

void refuse_foreign(const std::string& file) {
    throw Refusal(fmt::format("{}: no line of it is a message of the connection manager", file));
}

}  // namespace oxrctl
