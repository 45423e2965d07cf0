#include "game/tetris.h"

#include <algorithm>
#include <cmath>

namespace kel::game {
namespace {

struct ShapeInfo {
  int box;                     // the box's side
  std::array<Point, 4> cells;  // the squares at rotation 0
};

// By Shape: I, J, L, O, S, T, Z.
constexpr std::array<ShapeInfo, kShapeCount> kShapes{{
    {4, {{{0, 1}, {1, 1}, {2, 1}, {3, 1}}}},
    {3, {{{0, 0}, {0, 1}, {1, 1}, {2, 1}}}},
    {3, {{{2, 0}, {0, 1}, {1, 1}, {2, 1}}}},
    {2, {{{0, 0}, {1, 0}, {0, 1}, {1, 1}}}},
    {3, {{{1, 0}, {2, 0}, {0, 1}, {1, 1}}}},
    {3, {{{1, 0}, {0, 1}, {1, 1}, {2, 1}}}},
    {3, {{{0, 0}, {1, 0}, {1, 1}, {2, 1}}}},
}};

// The places a turn tries, as shifts of the box (x right, y down), by the rotation it
// starts from: clockwise and counter-clockwise, for I and for J, L, S, T, Z.
using Kicks = std::array<std::array<Point, 5>, 4>;
constexpr Kicks kKicksClockwise{{
    {{{0, 0}, {-1, 0}, {-1, -1}, {0, 2}, {-1, 2}}},
    {{{0, 0}, {1, 0}, {1, 1}, {0, -2}, {1, -2}}},
    {{{0, 0}, {1, 0}, {1, -1}, {0, 2}, {1, 2}}},
    {{{0, 0}, {-1, 0}, {-1, 1}, {0, -2}, {-1, -2}}},
}};
constexpr Kicks kKicksCounterClockwise{{
    {{{0, 0}, {1, 0}, {1, -1}, {0, 2}, {1, 2}}},
    {{{0, 0}, {1, 0}, {1, 1}, {0, -2}, {1, -2}}},
    {{{0, 0}, {-1, 0}, {-1, -1}, {0, 2}, {-1, 2}}},
    {{{0, 0}, {-1, 0}, {-1, 1}, {0, -2}, {-1, -2}}},
}};
constexpr Kicks kIKicksClockwise{{
    {{{0, 0}, {-2, 0}, {1, 0}, {-2, 1}, {1, -2}}},
    {{{0, 0}, {-1, 0}, {2, 0}, {-1, -2}, {2, 1}}},
    {{{0, 0}, {2, 0}, {-1, 0}, {2, -1}, {-1, 2}}},
    {{{0, 0}, {1, 0}, {-2, 0}, {1, 2}, {-2, -1}}},
}};
constexpr Kicks kIKicksCounterClockwise{{
    {{{0, 0}, {-1, 0}, {2, 0}, {-1, -2}, {2, 1}}},
    {{{0, 0}, {2, 0}, {-1, 0}, {2, -1}, {-1, 2}}},
    {{{0, 0}, {1, 0}, {-2, 0}, {1, 2}, {-2, -1}}},
    {{{0, 0}, {-2, 0}, {1, 0}, {-2, 1}, {1, -2}}},
}};

constexpr std::array<uint32_t, 5> kLinePoints{0, 100, 300, 500, 800};
constexpr uint32_t kFastestGravityMs = 20;

const ShapeInfo& InfoOf(Shape shape) { return kShapes[static_cast<size_t>(shape)]; }

}  // namespace

std::array<Point, 4> SquaresOf(const Piece& piece) {
  const ShapeInfo& info = InfoOf(piece.shape);
  std::array<Point, 4> squares = info.cells;
  for (Point& p : squares) {
    // A quarter turn clockwise inside the box: (x, y) -> (box - 1 - y, x).
    for (int turn = 0; turn < (piece.rotation & 3); ++turn) p = {info.box - 1 - p.y, p.x};
    p = {p.x + piece.at.x, p.y + piece.at.y};
  }
  return squares;
}

PieceBag::PieceBag(uint64_t seed) : state_(seed) {}

uint64_t PieceBag::Random() {
  // splitmix64: the same numbers from the same seed on every system and compiler.
  uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

Shape PieceBag::Next() {
  if (next_ == kShapeCount) {
    for (size_t i = 0; i < kShapeCount; ++i) bag_[i] = static_cast<Shape>(i);
    for (size_t i = kShapeCount - 1; i > 0; --i) std::swap(bag_[i], bag_[Random() % (i + 1)]);
    next_ = 0;
  }
  return bag_[next_++];
}

Tetris::Tetris(uint64_t seed) : bag_(seed) {
  const Shape first = bag_.Next();
  next_ = bag_.Next();
  Spawn(first);
}

bool Tetris::Fits(const Piece& piece) const {
  for (const Point& p : SquaresOf(piece)) {
    if (p.x < 0 || p.x >= kColumns || p.y >= kRows) return false;
    if (p.y >= 0 && well_[static_cast<size_t>(p.y)][static_cast<size_t>(p.x)] != 0) return false;
  }
  return true;
}

bool Tetris::Spawn(Shape shape) {
  // Centred (left of the middle when it cannot be), its squares in the top rows.
  const int box = InfoOf(shape).box;
  current_ = Piece{shape, 0, {(kColumns - box) / 2, shape == Shape::kI ? -1 : 0}};
  if (!Fits(current_)) over_ = true;
  return !over_;
}

bool Tetris::Shift(int dx) {
  if (over_) return false;
  Piece moved = current_;
  moved.at.x += dx;
  if (!Fits(moved)) return false;
  current_ = moved;
  return true;
}

bool Tetris::Rotate(bool clockwise) {
  if (over_ || current_.shape == Shape::kO) return false;
  const bool i = current_.shape == Shape::kI;
  const Kicks& kicks = clockwise ? (i ? kIKicksClockwise : kKicksClockwise)
                                 : (i ? kIKicksCounterClockwise : kKicksCounterClockwise);
  for (const Point& kick : kicks[static_cast<size_t>(current_.rotation)]) {
    Piece turned = current_;
    turned.rotation = (current_.rotation + (clockwise ? 1 : 3)) % 4;
    turned.at = {current_.at.x + kick.x, current_.at.y + kick.y};
    if (Fits(turned)) {
      current_ = turned;
      return true;
    }
  }
  return false;
}

bool Tetris::SoftDrop() {
  if (over_) return false;
  Piece fallen = current_;
  ++fallen.at.y;
  if (!Fits(fallen)) {
    Lock();
    return false;
  }
  current_ = fallen;
  ++score_;
  return true;
}

void Tetris::Tick() {
  if (over_) return;
  Piece fallen = current_;
  ++fallen.at.y;
  if (Fits(fallen)) {
    current_ = fallen;
  } else {
    Lock();
  }
}

void Tetris::HardDrop() {
  if (over_) return;
  const Piece landing = Landing();
  score_ += 2 * static_cast<uint32_t>(landing.at.y - current_.at.y);
  current_ = landing;
  Lock();
}

Piece Tetris::Landing() const {
  Piece landing = current_;
  for (Piece below = landing; Fits(below); ++below.at.y) landing = below;
  return landing;
}

void Tetris::Lock() {
  for (const Point& p : SquaresOf(current_)) {
    // A square above the well has nowhere to stay: the stack reached the top.
    if (p.y < 0) {
      over_ = true;
      return;
    }
    well_[static_cast<size_t>(p.y)][static_cast<size_t>(p.x)] =
        static_cast<uint8_t>(1 + static_cast<int>(current_.shape));
  }
  const int cleared = ClearFullRows();
  score_ += kLinePoints[static_cast<size_t>(cleared)] * Level();
  lines_ += static_cast<uint32_t>(cleared);
  const Shape shape = next_;
  next_ = bag_.Next();
  Spawn(shape);
}

int Tetris::ClearFullRows() {
  int cleared = 0;
  // Rows are kept from the bottom up; full ones are skipped, empty ones come in on top.
  int to = kRows - 1;
  for (int from = kRows - 1; from >= 0; --from) {
    const auto& row = well_[static_cast<size_t>(from)];
    if (std::all_of(row.begin(), row.end(), [](uint8_t s) { return s != 0; })) {
      ++cleared;
      continue;
    }
    if (to != from) well_[static_cast<size_t>(to)] = row;
    --to;
  }
  for (; to >= 0; --to) well_[static_cast<size_t>(to)].fill(0);
  return cleared;
}

uint32_t Tetris::GravityMs() const {
  // The usual curve: (0.8 - 0.007 (level - 1)) ^ (level - 1) seconds a row.
  const double level = Level() - 1.0;
  const double seconds = std::pow(std::max(0.8 - 0.007 * level, 0.0), level);
  return std::max(kFastestGravityMs, static_cast<uint32_t>(seconds * 1000));
}

}  // namespace kel::game
