// The operator's hand in /etc/ostrel/oxr.conf, and what the file must be after a reading.
#pragma once

#include <string>
#include <vector>

#include "OstrelProvider/config.h"
#include "soak/dice.h"
#include "soak/site.h"

namespace soak {

class Operator {
public:
    Operator(Site& site, Dice& dice) : site_(site), dice_(dice) {}

    // What an event that happens now writes: values that are all in range, with a comment of his own;
    std::vector<std::string> edits(bool hold_off_worker = false);
    // anything else, as bad values, missing keys, the old format, noise, an empty file;
    std::vector<std::string> damages();
    // nothing: the file goes.
    std::vector<std::string> removals();

    // A setting was written through the library: the file is no longer the operator's.
    void gave_way() { edited_.clear(); }
    // The worker has just read the file.
    void was_read() { read_ = true; }

    // A valid edit that no reading needs to correct must stand as it was written; every other file must be whole
    // once it has been read. `disturbed`: calls on the file failed meanwhile. Empty, or what is wrong.
    std::string look(bool disturbed) const;

    // The values of the last edit, as long as the file holds them.
    const ConfigValues& values() const { return values_; }

private:
    Site& site_;
    Dice& dice_;
    ConfigValues values_;
    std::string edited_;  // empty: the file isn't that of a valid edit
    bool read_ = false;   // since it was written

    ConfigValues any_values();
    void leave();
};

}  // namespace soak
