#include "game/tetris.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

namespace kel::game {
namespace {

constexpr uint64_t kSeed = 42;

// Brings `shape` in, turned and shifted as asked, without letting it fall.
void Place(Tetris& game, Shape shape, int clockwise_turns, int shift) {
  ASSERT_TRUE(game.Spawn(shape));
  for (int i = 0; i < clockwise_turns; ++i) ASSERT_TRUE(game.Rotate(true));
  for (int i = 0; i != shift; i += shift > 0 ? 1 : -1) ASSERT_TRUE(game.Shift(shift > 0 ? 1 : -1));
}

void FillRow(Tetris& game, int row, int except_column) {
  auto& squares = game.MutableSquares()[static_cast<size_t>(row)];
  squares.fill(1);
  squares[static_cast<size_t>(except_column)] = 0;
}

TEST(PieceBagTest, OneSeedGivesOneOrderAndEveryBagHoldsEachShapeOnce) {
  PieceBag a(kSeed);
  PieceBag b(kSeed);
  PieceBag other(kSeed + 1);
  std::vector<Shape> from_a, from_other;
  for (int bag = 0; bag < 3; ++bag) {
    std::set<Shape> shapes;
    for (size_t i = 0; i < kShapeCount; ++i) {
      from_a.push_back(a.Next());
      from_other.push_back(other.Next());
      shapes.insert(from_a.back());
      EXPECT_EQ(from_a.back(), b.Next());
    }
    EXPECT_EQ(kShapeCount, shapes.size());
  }
  EXPECT_NE(from_a, from_other);
}

TEST(TetrisTest, ATurnAgainstTheWallKicksThePieceAwayAndOneWithNoRoomFails) {
  Tetris game(kSeed);
  // T turned upright, pushed to the left wall: its box sticks out one column.
  Place(game, Shape::kT, 1, -4);
  EXPECT_FALSE(game.Shift(-1));
  ASSERT_TRUE(game.Rotate(true));
  EXPECT_EQ((Piece{Shape::kT, 2, {0, 0}}), game.Current()) << "kicked one column right";
  EXPECT_EQ((std::array<Point, 4>{{{1, 2}, {2, 1}, {1, 1}, {0, 1}}}), SquaresOf(game.Current()));

  // An upright I at the bottom of a shaft one column wide cannot turn either way.
  for (int row = 10; row < kRows; ++row) FillRow(game, row, 0);
  Place(game, Shape::kI, 1, -5);
  while (game.Landing() != game.Current()) ASSERT_TRUE(game.SoftDrop());
  const Piece deep = game.Current();
  EXPECT_EQ((Point{-2, 16}), deep.at);
  EXPECT_FALSE(game.Rotate(true));
  EXPECT_FALSE(game.Rotate(false));
  EXPECT_EQ(deep, game.Current());
}

TEST(TetrisTest, FullRowsAreClearedScoredByHowManyAndTheRestMovesDown) {
  const uint32_t points[] = {100, 300, 500, 800};
  for (int rows = 1; rows <= 4; ++rows) {
    Tetris game(kSeed);
    for (int row = kRows - rows; row < kRows; ++row) FillRow(game, row, 9);
    auto& well = game.MutableSquares();
    well[static_cast<size_t>(kRows - rows - 1)][0] = 1;  // a square above them
    Place(game, Shape::kI, 1, 4);                        // upright in column 9
    const uint32_t fall = static_cast<uint32_t>(game.Landing().at.y - game.Current().at.y);
    game.HardDrop();
    EXPECT_EQ(static_cast<uint32_t>(rows), game.Lines()) << rows;
    EXPECT_EQ(2 * fall + points[rows - 1], game.Score()) << rows;
    // What stays: the square, now on the bottom row, and the I's squares above the rows.
    size_t squares = 0;
    for (const auto& row : well)
      squares += static_cast<size_t>(
          std::count_if(row.begin(), row.end(), [](uint8_t s) { return s != 0; }));
    EXPECT_EQ(1U + 4U - static_cast<size_t>(rows), squares) << rows;
    EXPECT_NE(0, well[kRows - 1][0]) << rows;
  }
}

TEST(TetrisTest, LevelsComeEveryTenRowsAndFallFaster) {
  Tetris game(kSeed);
  const uint32_t first = game.GravityMs();
  for (int round = 0; round < 3; ++round) {
    for (int row = kRows - 4; row < kRows; ++row) FillRow(game, row, 9);
    Place(game, Shape::kI, 1, 4);
    game.HardDrop();
  }
  EXPECT_EQ(12U, game.Lines());
  EXPECT_EQ(2U, game.Level());
  EXPECT_LT(game.GravityMs(), first);
}

TEST(TetrisTest, TheGameIsOverWhenAPieceHasNoRoomAndThenNothingMoves) {
  Tetris game(kSeed);
  int pieces = 0;
  while (!game.Over() && pieces < 100) {
    game.HardDrop();
    ++pieces;
  }
  ASSERT_TRUE(game.Over());
  EXPECT_LE(pieces, 20) << "pieces dropped in the middle fill it soon";
  const Well well = game.Squares();
  const uint32_t score = game.Score();
  EXPECT_FALSE(game.Shift(1) || game.Rotate(true) || game.SoftDrop());
  game.HardDrop();
  game.Tick();
  EXPECT_EQ(score, game.Score());
  EXPECT_EQ(well, game.Squares());

  Tetris blocked(kSeed);
  FillRow(blocked, 0, 0);
  EXPECT_FALSE(blocked.Spawn(Shape::kO));
  EXPECT_TRUE(blocked.Over());
}

}  // namespace
}  // namespace kel::game
