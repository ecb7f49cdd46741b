#pragma once

#include <filesystem>
#include <vector>

/// What is in a folder (a path of this machine), as whole paths in the order of their names, as far as it can be read:
/// nothing where it is not there. What it holds may be changed while going through them. Any thread.
std::vector<std::filesystem::path> EntriesOf(const std::filesystem::path& folder);
