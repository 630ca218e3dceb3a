// Reads the parts of a document that a test compares with the program.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace sorvane::test {

using Lines = std::vector<std::string>;

/// Returns the lines of a file. Fails the running test when the file cannot be read.
[[nodiscard]] Lines documentLines(const std::filesystem::path& document);

/// Returns the lines below a heading, such as "## Installing", up to the next heading of two or
/// fewer signs. Empty when there is no such heading.
[[nodiscard]] Lines chapter(const Lines& document, const std::string& heading);

/// Returns the texts between fences of one kind: "python", or "" for fences without a kind.
[[nodiscard]] std::vector<std::string> fencedBlocks(const Lines& lines, const std::string& kind);

}  // namespace sorvane::test
