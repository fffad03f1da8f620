// The operator's hand in /etc/ostrel/oxr.conf, and what the file must be after a reading.
#pragma once

#include <string>

#include "OstrelProvider/config.h"
#include "soak/site.h"

namespace soak {

class Operator {
public:
    explicit Operator(RandomSite& site) : site_(site) {}

    // What an event that happens now writes, as a text of TOML: values that are all in range, with a comment of his
    // own;
    std::string edit(bool hold_off_worker);
    // anything else, as bad values, missing keys, the old format, noise, an empty file;
    std::string damage();
    // nothing: the file goes.
    std::string removal() { return leave(), "true"; }
    // The file is no longer as the operator wrote it.
    void leave();
    // The worker has just read the file.
    void was_read() { read_ = true; }

    // A valid edit that no reading needs to correct must stand as it was written; every other file must be whole
    // once it has been read. `disturbed`: calls on the file failed meanwhile. Empty, or what is wrong.
    std::string look(bool disturbed) const;

    // The values of the last edit, as long as the file holds them.
    const ConfigValues& values() const { return values_; }

private:
    RandomSite& site_;
    ConfigValues values_;
    std::string edited_;  // empty: the file isn't that of a valid edit
    bool read_ = false;   // since it was written

    ConfigValues any_values();
};

}  // namespace soak
