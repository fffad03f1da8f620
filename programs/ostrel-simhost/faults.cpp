// The description of a failing call.
#include <fmt/format.h>

#include <cerrno>

#include "scenario_parts.h"
#include "simhost/operations.h"

namespace ostrel_simhost {

namespace {

struct ErrorName {
    std::string_view name;
    int number;
};
constexpr std::array<ErrorName, 14> ERROR_NAMES = {{{"EPERM", EPERM},
                                                    {"ENOENT", ENOENT},
                                                    {"EINTR", EINTR},
                                                    {"EIO", EIO},
                                                    {"ENXIO", ENXIO},
                                                    {"EAGAIN", EAGAIN},
                                                    {"ENOMEM", ENOMEM},
                                                    {"EACCES", EACCES},
                                                    {"EBUSY", EBUSY},
                                                    {"ENODEV", ENODEV},
                                                    {"EINVAL", EINVAL},
                                                    {"EMFILE", EMFILE},
                                                    {"ENOSPC", ENOSPC},
                                                    {"EROFS", EROFS}}};

int read_errno(Fields& fields) {
    const TomlValue* value = fields.find("errno");
    if (value == nullptr) {
        return 0;
    }
    constexpr std::int64_t most = 4095;
    if (value->kind == TomlValue::Kind::integer && value->integer >= 1 && value->integer <= most) {
        return static_cast<int>(value->integer);
    }
    std::string all;
    for (const ErrorName& error : ERROR_NAMES) {
        if (value->kind == TomlValue::Kind::text && value->text == error.name) {
            return error.number;
        }
        all += fmt::format("{}, ", error.name);
    }
    fields.complain("errno", fmt::format("{}or a number from 1 to {}", all, most));
    return 0;
}

}  // namespace

simhost::Fault read_fault(Problems& problems, const TomlValue& table, const std::string& path) {
    Fields fields(problems, table, path);
    simhost::Fault fault;
    fault.operation = fields.required_text("operation", "the name of an operation of the host");
    if (!fault.operation.empty() && !simhost::is_operation(fault.operation)) {
        std::string all;
        for (const simhost::Operation& each : simhost::OPERATIONS) {
            all.append(all.empty() ? "" : ", ").append(each.name);
        }
        fields.complain("operation", "one of " + all);
    }
    fault.nth = static_cast<std::uint64_t>(fields.integer("nth", 1, 1000000000).value_or(1));
    fault.persistent = fields.flag("persistent").value_or(false);
    const auto status = fields.integer("status", 1, 0xffffffffLL);
    fault.status = static_cast<std::uint32_t>(status.value_or(fault.status));
    fault.error = read_errno(fields);
    fault.short_by = static_cast<std::size_t>(fields.integer("short_by", 0, 1 << 20).value_or(0));
    fault.path_contains = fields.text("path_contains").value_or("");
    fields.finish();
    const bool is_ima = fault.operation.starts_with("IMA_");
    if (fault.error == 0 && !is_ima && !status && fault.short_by == 0) {
        fault.error = EIO;  // what a device or file answers when nothing else is asked for
    }
    return fault;
}

}  // namespace ostrel_simhost
