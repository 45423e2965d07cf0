#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kel::game {

/// The well: 10 columns, 20 rows; row 0 is the top.
inline constexpr int kColumns = 10;
inline constexpr int kRows = 20;

/// The seven pieces, each of four squares.
enum class Shape : uint8_t { kI, kJ, kL, kO, kS, kT, kZ };
inline constexpr size_t kShapeCount = 7;

struct Point {
  int x = 0;  ///< column, 0 at the left
  int y = 0;  ///< row, 0 at the top

  bool operator==(const Point&) const = default;
};

/// A piece in play: its shape, its rotation (0 as it comes, then one quarter turn clockwise
/// per step, to 3) and the column and row of the top left corner of its box (4 by 4 for
/// I, 2 by 2 for O, 3 by 3 for the others). Parts of the box may lie outside the well.
struct Piece {
  Shape shape = Shape::kI;
  int rotation = 0;
  Point at;

  bool operator==(const Piece&) const = default;
};

/// The four squares of `piece` in the well's coordinates.
std::array<Point, 4> SquaresOf(const Piece& piece);

/// Pieces in bags of seven: each bag holds every shape once, in an order drawn from a
/// generator seeded with `seed`, so that one seed always gives the same pieces.
class PieceBag {
 public:
  explicit PieceBag(uint64_t seed);
  Shape Next();

 private:
  uint64_t Random();

  uint64_t state_;
  std::array<Shape, kShapeCount> bag_{};
  size_t next_ = kShapeCount;
};

/// Every square of the well: 0 empty, otherwise 1 + the Shape that left it there.
using Well = std::array<std::array<uint8_t, kColumns>, kRows>;

/// The game without its drawing. A piece comes in at the top; it moves, turns (with the
/// usual wall kicks: a turn that does not fit tries up to four shifted places) and falls
/// one row per Tick. A piece that cannot fall further is locked into the well; full rows
/// are cleared, scored by the level (100, 300, 500, 800 for one to four rows at once,
/// times the level) and counted; every 10 rows make the next level, which falls faster.
/// Dropping a piece scores 1 per row by SoftDrop and 2 per row by HardDrop. The game is
/// over when a new piece has no room.
class Tetris {
 public:
  /// Starts with an empty well and the first piece of a bag seeded with `seed`.
  explicit Tetris(uint64_t seed);

  /// Moves the piece `dx` columns (-1 left, 1 right). False when it does not fit.
  bool Shift(int dx);
  /// Turns the piece a quarter clockwise or counter-clockwise, with wall kicks. False when
  /// no place fits.
  bool Rotate(bool clockwise);
  /// Moves the piece one row down; when it cannot fall it is locked (false).
  bool SoftDrop();
  /// Drops the piece as far as it falls and locks it.
  void HardDrop();
  /// One step of gravity: one row down, or the piece locks.
  void Tick();

  /// Brings `shape` in at the top as the piece in play. False, and the game is over, when
  /// it has no room.
  bool Spawn(Shape shape);
  /// Where the piece would lock after a hard drop.
  Piece Landing() const;

  bool Over() const { return over_; }
  uint32_t Score() const { return score_; }
  uint32_t Lines() const { return lines_; }
  uint32_t Level() const { return 1 + lines_ / 10; }
  /// The time between two steps of gravity at the current level.
  uint32_t GravityMs() const;

  const Piece& Current() const { return current_; }
  Shape Next() const { return next_; }
  const Well& Squares() const { return well_; }
  /// The well for setting up a position.
  Well& MutableSquares() { return well_; }

 private:
  bool Fits(const Piece& piece) const;
  void Lock();
  int ClearFullRows();

  PieceBag bag_;
  Well well_{};
  Piece current_;
  Shape next_;
  bool over_ = false;
  uint32_t score_ = 0;
  uint32_t lines_ = 0;
};

}  // namespace kel::game
