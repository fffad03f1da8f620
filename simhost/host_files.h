// The host's files below the root folder, and the descriptors open on them.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace simhost {

// The absolute path without doubled slashes, "." and ".."; empty when it isn't one of the host's own trees
// (/etc/ostrel, /var/log/ostrel, /dev/char/vmkdriver, /vmfs).
std::string host_path_of(std::string_view path);

// Whether the path as it is written begins with one of those trees. Allocates nothing.
bool names_host_tree(std::string_view path);

class HostFiles {
public:
    // An empty root: a new folder under the temporary folder, removed again with `remove_root`.
    HostFiles(const std::string& root, bool remove_root);
    ~HostFiles();
    HostFiles(const HostFiles&) = delete;
    HostFiles& operator=(const HostFiles&) = delete;

    const std::string& root() const { return root_; }
    std::string real_path(std::string_view host_path) const { return root_ + std::string(host_path); }

    struct Open {
        std::string host_path;
        bool control = false;
        bool stream = false;
    };
    std::map<int, Open> open;    // descriptors, by number
    std::map<int, Open> closed;  // those closed again, while their number isn't handed out anew

private:
    std::string root_;
    bool remove_ = false;
};

}  // namespace simhost
