// How results are printed.
#pragma once

#include <string>
#include <vector>

#include "driver/Comparison.h"

namespace sorvane::bench {

/// A whole number with its thousands apart: 1,234,567.
[[nodiscard]] std::string grouped(double value);

/// The line that names the columns.
void printColumns();
/// A row: a line for each server, and one for each aim.
void print(const Comparison& comparison);

/// A line that says how an aim was met.
void printAim(const std::string& what, const std::string& measured, bool met);

}  // namespace sorvane::bench
