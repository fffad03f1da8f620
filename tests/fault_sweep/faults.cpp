#include "fault_sweep/faults.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <regex>

#include "support/faults.h"

using namespace testing_support;
using simhost::Fault;

namespace fault_sweep {

namespace {

constexpr std::uint32_t last_psp_status = 10;

bool matches(const std::string& text, const std::string& pattern) {
    return std::regex_search(text, std::regex(pattern));
}

bool is_psp_request(const std::string& operation) {
    return matches(operation, "^psp\\.[0-9]$");
}

// What the log says of a failed call, the first row that fits; null: nothing, for the reason beside it.
struct Telling {
    const char* met;  // the operation and the file
    const char* text;
};

constexpr Telling tellings[] = {
    {"oxr\\.log", nullptr},        // there is nothing to write to
    {"^psp\\.close", nullptr},     // of a device that was only asked
    {"^close", nullptr},           // of a file that was only read, or whose content is checked at the next reading
    {"^(access|mkdir)", nullptr},  // a file is made where none seems to be, but never over one
    {"^(open|stat|read) .*oxr\\.conf", nullptr},  // the folder of the logs is the default where it can't be read
    {"^pthread_mutex_init", nullptr},             // tried again by the initialisation that follows
    {"^sigaction", nullptr},                      // idem, or nothing to put back
    {"^IMA_VMW_GetInitiatorAuthParms", nullptr},  // only a warning hangs on it
    {"^IMA_FreeMemory", "Could not free IMA Memory"},
    {"^IMA_GetLhbaOidList", "logical and physical hba oid list"},
    {"^IMA_GetTargetProperties", "No Matching Target Found"},
    {"^IMA_VMW_GetLhba(OidList|Properties)", "adapter not found"},
    {"^IMA_VMW_GetStaticDiscoveryTargetOidList", "Unable to get static target list"},
    {"^IMA_", "got IMA Error"},
    {"^psp\\.open", "open control device failed"},
    {"^psp", "ioctl"},
    {"^new", "lloc"},
    {"^pthread_create", "pthread_create failed"},
    {"^pthread_join", "pthread_join (returned|failed)"},
    {"^pthread_kill", "pthread_kill failed"},
    {"^pthread_mutex_destroy", "destroy returned"},
    {"version\\.txt", "version"},
    {"^open .*\\.lock", "fopen\\(\\) failed"},
    {"^unlink .*\\.lock", "Error deleting the lock file"},
    {"^(write|ftruncate) .*oxr\\.conf", "writing oxr\\.conf failed"},
    {"", "[^\\s\\S]"},
};

constexpr char searched[] = "^IMA_(GetTargetProperties|VMW_GetLhba(OidList|Properties))";

// What a caller may get in place of the undisturbed result. An IMA answer that isn't got ends a renewal by the
// step it was asked in: before the first session goes (1), with sessions left out (3, 4), at a session's end (6)
// or return (7).
struct Outcome {
    const char* undisturbed;
    const char* operation;  // with the status behind it, for a request to the PSP
    const char* result;
};

constexpr Outcome outcomes[] = {
    {"^0$", "^psp\\.5 ([0-9]+)", "^(-1|[1-9][0-9]?)$"},
    {"^0$", "^(IMA_|new|psp\\.)", "^-1$"},
    {"^renewed 0$", "^psp\\.1 3", "^renewed 2$"},
    {"^renewed 0$", "^psp\\.1", "^renewed 1$"},
    {"^renewed 0$", "^psp\\.5", "^renewed 8$"},
    {"^renewed 0$", "^(psp\\.open|new)", "^renewed [18]$"},
    {"^renewed 0$", "^pthread", "^renewed 1$"},
    {"^renewed 0$", "^(open|stat|read)", "^renewed 9$"},
    {"^renewed 0$", "^access", "^renewed 10$"},
    {"^renewed 0$", "^IMA_VMW_AddSession", "^renewed 7$"},
    {"^renewed 0$", "^IMA_VMW_RemoveSession", "^renewed 6$"},
    {"^renewed 0$", "^IMA_GetConnectionProperties", "^renewed 1$"},
    {"^renewed 0$", "^IMA_", "^renewed [13467]$"},
    {"^started", "^pthread_create", "^started -1, stopped 0$"},
    {"^started", "^pthread_(join|kill)", "^started 0, stopped -1$"},
};

}  // namespace

std::vector<Fault> faults_of(const std::string& operation) {
    std::vector<Fault> made;
    if (matches(operation, "^(open|read|write|close|stat|unlink|access|ftruncate)$")) {
        for (const char* const file : {"oxr.log", "oxr.conf", ".lock", "version.txt"}) {
            made.push_back(failing_with(operation, operation == "write" ? ENOSPC : EIO, file));
            if (operation == "write") {
                made.push_back(failing_with(operation, 0, file));
                made.back().short_by = 7;
            }
        }
    }
    if (operation == "access" || operation == "mkdir" || is_psp_request(operation)) {
        made.push_back(failing_with(operation, EIO));  // access: of the folders
    }
    for (std::uint32_t status = 1; is_psp_request(operation) && status <= last_psp_status; ++status) {
        made.push_back(status_fault(operation, status));
    }
    if (made.empty()) {
        made.push_back(failing(operation));
    }
    for (std::size_t passing = made.size(); passing > 0; --passing) {
        made.push_back(lasting(made[passing - 1]));
    }
    return made;
}

bool is_told(const Fault& fault, const std::string& met, const std::vector<std::string>& complaints) {
    if (fault.operation == "psp.7" && fault.error == 0 && fault.status == 1) {
        return true;  // addresses of as many devices as fit are a success
    }
    if (!fault.persistent && matches(met, searched)) {
        return true;  // a search passes over what it can't read, and may find all the same
    }
    const Telling* const telling = std::find_if(std::begin(tellings), std::end(tellings),
                                                [&](const Telling& each) { return matches(met, each.met); });
    return telling->text == nullptr || std::any_of(complaints.begin(), complaints.end(), [&](const std::string& line) {
               return matches(line, telling->text);
           });
}

bool may_come_of(const Fault& fault, const std::string& undisturbed, const std::string& result) {
    const std::string operation = is_psp_request(fault.operation)
                                      ? fault.operation + " " + std::to_string(fault.error == 0 ? fault.status : 0)
                                      : fault.operation;
    return result == undisturbed || std::any_of(std::begin(outcomes), std::end(outcomes), [&](const Outcome& each) {
               return matches(undisturbed, each.undisturbed) && matches(operation, each.operation) &&
                      matches(result, each.result);
           });
}

}  // namespace fault_sweep
