// Refusing an output that would overwrite an input, or another output.
#ifndef DOFRA_TOOLS_PATHS_H
#define DOFRA_TOOLS_PATHS_H

#include <string>
#include <utility>
#include <vector>

namespace dofra_tool {

// An option's spelling and the path it names; an empty path is skipped.
using NamedPath = std::pair<std::string, std::string>;

// Refuses (InputError) an output that is the same file as an input or as
// another output: the same device and inode when the file exists (links and
// symbolic links included), else the same canonical path.
void CheckNoOverwrite(const std::vector<NamedPath>& inputs, const std::vector<NamedPath>& outputs);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_PATHS_H
