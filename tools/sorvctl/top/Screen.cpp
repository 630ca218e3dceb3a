#include "sorvctl/top/Screen.h"

#include <curses.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>

#include <clocale>
#include <cstring>
#include <string>

#include "platform/Utf8.h"
#include "sorvctl/Failure.h"

namespace sorvctl::top {

namespace {

// How long the rest of an escape sequence may take. A longer wait makes the escape key slow.
constexpr int kEscapeMilliseconds = 50;
constexpr wchar_t kReplacement = L'\uFFFD';
constexpr wint_t kDelete = 0x7F;
constexpr wint_t kEscape = 0x1B;

void useUtf8() {
  if (setlocale(LC_CTYPE, "") == nullptr || std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
    setlocale(LC_CTYPE, "C.UTF-8");
  }
}

enum Pair : short { none, green, yellow, red };

/// The characters of a text that fit into so many columns, as the terminal counts them.
std::wstring fitting(std::string_view text, int columns) {
  std::wstring characters;
  while (!text.empty()) {
    const std::size_t length = sorvane::utf8CharacterLength(text);
    auto character = length == 0
                         ? kReplacement
                         : static_cast<wchar_t>(sorvane::utf8CodePoint(text.substr(0, length)));
    if (wcwidth(character) < 0) {
      character = kReplacement;
    }
    columns -= wcwidth(character);
    if (columns < 0) {
      break;
    }
    characters += character;
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return characters;
}

std::optional<Key> keyOfCode(wint_t code) {
  switch (code) {
    case KEY_UP:
      return Key::up;
    case KEY_DOWN:
      return Key::down;
    case KEY_PPAGE:
      return Key::pageUp;
    case KEY_NPAGE:
      return Key::pageDown;
    case KEY_HOME:
      return Key::first;
    case KEY_END:
      return Key::last;
    case KEY_ENTER:
      return Key::enter;
    case KEY_BACKSPACE:
      return Key::backspace;
    default:
      return std::nullopt;
  }
}

std::optional<Key> keyOfCharacter(wint_t character) {
  switch (character) {
    case L'\r':
    case L'\n':
      return Key::enter;
    case L'\b':
    case kDelete:
      return Key::backspace;
    case kEscape:
      return Key::escape;
    default:
      return character < L' ' ? std::nullopt : std::optional(Key::text);
  }
}

}  // namespace

struct Screen::Curses {
  SCREEN* screen = nullptr;
  bool coloured = false;

  [[nodiscard]] attr_t attributesOf(Tone tone) const {
    const auto colour = [this](Pair pair) { return coloured ? COLOR_PAIR(pair) : A_NORMAL; };
    switch (tone) {
      case Tone::good:
        return colour(green);
      case Tone::doubtful:
        return colour(yellow);
      case Tone::bad:
        return colour(red) | A_BOLD;
      case Tone::faint:
        return A_DIM;
      case Tone::heading:
        return A_BOLD;
      case Tone::plain:
        break;
    }
    return A_NORMAL;
  }
};

void Screen::use(bool coloured, const std::function<void(Screen&)>& work) {
  try {
    Screen screen(coloured);
    work(screen);
  } catch (...) {
    // Only an exception that is caught destroys what lies between. This one is caught here at
    // least.
    throw;
  }
}

Screen::Screen(bool coloured) : curses_(std::make_unique<Curses>()) {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
    throw Failure(Status::wrongUsage, "this command needs a terminal");
  }
  useUtf8();
  curses_->screen = newterm(nullptr, stdout, stdin);
  if (curses_->screen == nullptr) {
    throw Failure(Status::wrongUsage,
                  "this terminal is of an unknown kind: TERM tells none that is installed here");
  }
  cbreak();
  noecho();
  nonl();
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  curs_set(0);
  set_escdelay(kEscapeMilliseconds);
  if (coloured && has_colors()) {
    curses_->coloured = true;
    start_color();
    use_default_colors();
    init_pair(green, COLOR_GREEN, -1);
    init_pair(yellow, COLOR_YELLOW, -1);
    init_pair(red, COLOR_RED, -1);
  }
}

Screen::~Screen() {
  leave();
  delscreen(curses_->screen);
}

Size Screen::size() const { return {getmaxy(stdscr), getmaxx(stdscr)}; }

void Screen::show(const Picture& picture) {
  const Size room = size();
  erase();
  for (int row = 0; row < room.rows && row < static_cast<int>(picture.size()); ++row) {
    const Line& line = picture[static_cast<std::size_t>(row)];
    const attr_t marked = line.selected ? A_REVERSE : A_NORMAL;
    if (line.selected) {
      attrset(A_REVERSE);
      mvhline(row, 0, ' ', room.columns);
    }
    for (const Span& span : line.spans) {
      if (span.column < room.columns) {
        attrset(curses_->attributesOf(span.tone) | marked);
        const std::wstring text =
            fitting(span.text, std::min(span.width, room.columns - span.column));
        mvaddnwstr(row, span.column, text.data(), static_cast<int>(text.size()));
      }
    }
  }
  attrset(A_NORMAL);
  refresh();
}

std::optional<Press> Screen::read() {
  wint_t character = 0;
  for (int kind = get_wch(&character); kind != ERR; kind = get_wch(&character)) {
    const auto key = kind == KEY_CODE_YES ? keyOfCode(character) : keyOfCharacter(character);
    if (key) {
      Press press{*key, {}};
      if (*key == Key::text) {
        sorvane::appendUtf8(press.text, static_cast<char32_t>(character));
      }
      return press;
    }
  }
  return std::nullopt;
}

void Screen::resize() {
  winsize now{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &now) == 0 && now.ws_row > 0 && now.ws_col > 0) {
    resizeterm(now.ws_row, now.ws_col);
  }
}

void Screen::leave() {
  if (!isendwin()) {
    endwin();
  }
}

void Screen::enter() {
  // If nobody has left, this process was stopped by force, and another one may have used the
  // terminal. Only after leaving are all its modes set again.
  leave();
  refresh();
  resize();  // it may have happened meanwhile
  clearok(curscr, TRUE);
}

}  // namespace sorvctl::top
