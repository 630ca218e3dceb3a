// A terminal of a test's own, for programs that behave otherwise on one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sorvane::test {

/// A pseudo terminal. What programs write to it is kept with its escape sequences.
class Terminal {
 public:
  explicit Terminal(unsigned short columns = 80, unsigned short rows = 24);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// In a new process: makes this its terminal, and lets these descriptors lead to it. For
  /// `Program::Options::beforeStart`.
  void use(const std::vector<int>& descriptors) const;

  /// Types the text, as fast as the system takes it.
  void type(std::string_view text) const;

  /// Waits until what was written to it, echo included, holds that text so many times; false when
  /// it does not within `kPatience`.
  [[nodiscard]] bool shows(std::string_view text, int times = 1);

  /// What was written to it so far.
  [[nodiscard]] const std::string& text();

 private:
  int master_ = -1;
  int slave_ = -1;  // kept open: otherwise the terminal goes with the last program that uses it
  std::string text_;
};

}  // namespace sorvane::test
