// Which fields of a database have a place in a line, and where.
#pragma once

#include <vector>

namespace sorvctl::top {

enum class Field { name, state, alert, age, change, number, host, type };

struct Place {
  Field field = Field::name;
  int column = 0;  ///< where it begins, from 0
  int width = 0;
};

/// Returns the places in a line of that many columns, from left to right, with two blanks between
/// them. A narrow line has fewer fields: the name always, then the state, the age, the alert, the
/// last change (from 72 columns on), and number, host and type (from 120 on).
[[nodiscard]] std::vector<Place> layout(int columns);

/// The heading above a field.
[[nodiscard]] const char* headingOf(Field field);

}  // namespace sorvctl::top
