#include "game/tetris_view.h"

#include <array>
#include <cstdio>

namespace kel::game {
namespace {

constexpr const char* kHome = "\x1b[H";
constexpr const char* kLineEnd = "\x1b[K\r\n";  // the rest of the old line goes too
constexpr const char* kEmpty = " .";
constexpr const char* kGhost = "\x1b[2m::\x1b[0m";

// The colour of each shape's squares: I, J, L, O, S, T, Z.
constexpr std::array<const char*, kShapeCount> kSquares{
    "\x1b[36m[]\x1b[0m", "\x1b[34m[]\x1b[0m", "\x1b[33m[]\x1b[0m", "\x1b[93m[]\x1b[0m",
    "\x1b[32m[]\x1b[0m", "\x1b[35m[]\x1b[0m", "\x1b[31m[]\x1b[0m"};

constexpr std::array<const char*, 5> kKeys{"arrows or WASD move", "up or W turns, Z back",
                                           "down or S falls", "space drops", "Q or Esc ends"};

// The text beside row `row` of the well.
std::string Beside(const Tetris& game, int row) {
  char text[64] = "";
  switch (row) {
    case 1: std::snprintf(text, sizeof text, "Score %u", game.Score()); break;
    case 2: std::snprintf(text, sizeof text, "Lines %u", game.Lines()); break;
    case 3: std::snprintf(text, sizeof text, "Level %u", game.Level()); break;
    case 5: return "Next";
    case 6:
    case 7: {
      // The next piece as it will come, in its box's first two rows.
      const Piece next{game.Next(), 0, {0, game.Next() == Shape::kI ? -1 : 0}};
      std::string line = "        ";
      for (const Point& p : SquaresOf(next)) {
        if (p.y == row - 6) line.replace(static_cast<size_t>(2 * p.x), 2, "[]");
      }
      return line;
    }
    case 18: return game.Over() ? "GAME OVER - a key ends" : "";
    default:
      if (row >= 10 && row < 10 + static_cast<int>(kKeys.size())) {
        return kKeys[static_cast<size_t>(row - 10)];
      }
      break;
  }
  return text;
}

}  // namespace

std::string DrawTetris(const Tetris& game) {
  std::array<std::array<const char*, kColumns>, kRows> screen{};
  const Well& well = game.Squares();
  for (int y = 0; y < kRows; ++y) {
    for (int x = 0; x < kColumns; ++x) {
      const uint8_t square = well[static_cast<size_t>(y)][static_cast<size_t>(x)];
      screen[static_cast<size_t>(y)][static_cast<size_t>(x)] =
          square == 0 ? kEmpty : kSquares[static_cast<size_t>(square - 1)];
    }
  }
  if (!game.Over()) {
    auto put = [&screen](const Piece& piece, const char* text) {
      for (const Point& p : SquaresOf(piece)) {
        if (p.y >= 0) screen[static_cast<size_t>(p.y)][static_cast<size_t>(p.x)] = text;
      }
    };
    put(game.Landing(), kGhost);
    put(game.Current(), kSquares[static_cast<size_t>(game.Current().shape)]);
  }
  std::string text = kHome;
  for (int y = 0; y < kRows; ++y) {
    text += "  |";
    for (const char* square : screen[static_cast<size_t>(y)]) text += square;
    text += "|   ";
    text += Beside(game, y);
    text += kLineEnd;
  }
  text += "  +";
  text.append(2 * kColumns, '-');
  text += "+";
  text += kLineEnd;
  return text;
}

}  // namespace kel::game
