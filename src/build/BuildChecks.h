#pragma once
#include <string>
#include <vector>

#include "build/BuildState.h"
#include "build/ModBuild.h"

class rap_entry;

// The checks a modder needs across the addons of a project, which no single archive can make:
// files that configs name by the project's game paths but that no addon holds, and classes
// inherited from another addon of the project whose CfgPatches class requiredAddons[] omits.
namespace BuildChecks {

// What the checks need of one config tree.
void gather(rap_entry const* root, BuildState::Facts& facts);

// The warnings, each naming the file and line where the text stands when it can be found.
std::vector<std::string> across(BuildState const& state, std::vector<ModBuild::Addon> const& addons,
                                std::string const& project, std::string const& project_prefix);

}  // namespace BuildChecks
