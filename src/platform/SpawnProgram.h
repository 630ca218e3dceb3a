// Starting another program, which gets neither the files nor the signal settings of this process.
#pragma once

#include <string>
#include <vector>

namespace sorvane {

/// Starts the program at `path` and returns its process number. Its arguments are the path and
/// `words`, and its environment is that of this process. It inherits descriptors 0, 1 and 2 and no
/// others; `output` and `errors`, unless negative, take the places of 1 and 2. No signal is
/// blocked, and each has its default action. Raises NSException with the reason if the program
/// cannot be started. The caller waits for the end of the program, unless the system reaps ended
/// children. Any thread.
[[nodiscard]] int spawnProgram(const std::string& path, const std::vector<std::string>& words = {},
                               int output = -1, int errors = -1);

/// Returns `words` as the system takes arguments: pointers into them, and null behind the last.
[[nodiscard]] inline std::vector<char*> argumentArray(std::vector<std::string>& words) {
  std::vector<char*> array;
  array.reserve(words.size() + 1);
  for (std::string& word : words) {
    array.push_back(word.data());
  }
  array.push_back(nullptr);
  return array;
}

}  // namespace sorvane
