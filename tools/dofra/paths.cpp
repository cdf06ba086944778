#include "paths.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>

#include "cli.h"

namespace dofra_tool {

namespace {

// What makes two paths the same file.
struct Identity {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  std::string canonical;  // of a file not there yet: its directory's real path + name
};

Identity IdentityOf(const std::string& path) {
  Identity id;
  struct stat info;
  if (stat(path.c_str(), &info) == 0) {
    id.exists = true;
    id.device = info.st_dev;
    id.inode = info.st_ino;
    return id;
  }
  const size_t slash = path.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  char real[PATH_MAX];
  id.canonical = (realpath(dir.c_str(), real) ? std::string(real) : dir) + "/" +
                 (slash == std::string::npos ? path : path.substr(slash + 1));
  return id;
}

bool SameFile(const Identity& a, const Identity& b) {
  if (a.exists != b.exists) return false;
  return a.exists ? a.device == b.device && a.inode == b.inode : a.canonical == b.canonical;
}

}  // namespace

void CheckNoOverwrite(const std::vector<NamedPath>& inputs, const std::vector<NamedPath>& outputs) {
  std::vector<std::pair<const NamedPath*, Identity>> seen;
  for (const NamedPath& input : inputs) {
    if (!input.second.empty()) seen.emplace_back(&input, IdentityOf(input.second));
  }
  for (const NamedPath& output : outputs) {
    if (output.second.empty()) continue;
    const Identity id = IdentityOf(output.second);
    for (const auto& other : seen) {
      if (SameFile(id, other.second)) {
        throw InputError(output.first + " " + output.second + " is the same file as " +
                         other.first->first + " " + other.first->second);
      }
    }
    seen.emplace_back(&output, id);
  }
}

}  // namespace dofra_tool
