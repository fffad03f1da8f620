#include "simhost/host_files.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "OstrelConnections/psp/psp_records.h"

namespace simhost {

namespace {

constexpr std::string_view TREES[] = {"/etc/ostrel", "/var/log/ostrel", "/dev/char/vmkdriver", "/vmfs"};

std::string normal(std::string_view path) {
    std::vector<std::string_view> parts;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string_view part = path.substr(at, end - at);
        if (part == "..") {
            if (!parts.empty()) {
                parts.pop_back();
            }
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        at = end + 1;
    }
    std::string text;
    for (const std::string_view part : parts) {
        text += '/';
        text += part;
    }
    return text;
}

}  // namespace

std::string host_path_of(std::string_view path) {
    if (path.empty() || path.front() != '/') {
        return {};
    }
    std::string text = normal(path);
    return names_host_tree(text) ? text : std::string();
}

bool names_host_tree(std::string_view path) {
    return std::any_of(std::begin(TREES), std::end(TREES), [path](std::string_view tree) {
        return path.starts_with(tree) && (path.size() == tree.size() || path[tree.size()] == '/');
    });
}

HostFiles::HostFiles(const std::string& root, bool remove_root) {
    if (root.empty()) {
        std::string folder = (std::filesystem::temp_directory_path() / "simhost-XXXXXX").string();
        if (mkdtemp(folder.data()) == nullptr) {
            throw std::runtime_error("simhost: no folder for the host's files: " + folder);
        }
        root_ = folder;
        remove_ = remove_root;
    } else {
        std::filesystem::create_directories(root);
        root_ = std::filesystem::canonical(root).string();
    }
    for (const char* folder : {"/etc/ostrel", "/var/log/ostrel", "/dev/char/vmkdriver", "/vmfs/volumes"}) {
        std::filesystem::create_directories(real_path(folder));
    }
    std::ofstream device(real_path(OSTREL_PSP_CONTROL_DEVICE));
    if (!device) {
        throw std::runtime_error("simhost: cannot write below " + root_);
    }
}

HostFiles::~HostFiles() {
    if (remove_) {
        std::error_code ignored;  // whatever is left is in the temporary folder
        std::filesystem::remove_all(root_, ignored);
    }
}

}  // namespace simhost
