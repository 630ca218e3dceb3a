#include "sorvctl/top/Layout.h"

#include <algorithm>

namespace sorvctl::top {

namespace {

constexpr int kGap = 2;
constexpr int kWidestName = 64;

/// A field, from which number of columns on it is shown, and its width. A width of 0 means a share
/// of what the others leave.
struct Wanted {
  Field field;
  int from;
  int width;
};

constexpr Wanted kFields[] = {
    {Field::name, 0, 0},    {Field::state, 20, 10},  {Field::alert, 56, 0},  {Field::age, 30, 7},
    {Field::change, 72, 0}, {Field::number, 120, 6}, {Field::host, 120, 16}, {Field::type, 120, 12},
};

}  // namespace

std::vector<Place> layout(int columns) {
  std::vector<Place> places;
  int left = columns;
  int sharing = 0;
  for (const Wanted& wanted : kFields) {
    if (columns >= wanted.from) {
      left -= wanted.width + (places.empty() ? 0 : kGap);
      sharing += wanted.width == 0 ? 1 : 0;
      places.push_back({wanted.field, 0, wanted.width});
    }
  }
  int column = 0;
  for (Place& place : places) {
    if (place.width == 0) {
      place.width = std::max(left / sharing, 0);
      if (place.field == Field::name) {
        place.width = std::min(place.width, kWidestName);
      }
      left -= place.width;
      --sharing;
    }
    place.column = column;
    column += place.width + kGap;
  }
  return places;
}

const char* headingOf(Field field) {
  switch (field) {
    case Field::name:
      return "NAME";
    case Field::state:
      return "STATE";
    case Field::alert:
      return "ALERT";
    case Field::age:
      return "AGE";
    case Field::change:
      return "LAST CHANGE";
    case Field::number:
      return "NUMBER";
    case Field::host:
      return "HOST";
    case Field::type:
      return "TYPE";
  }
  return "";
}

}  // namespace sorvctl::top
