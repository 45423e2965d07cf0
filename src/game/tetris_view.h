#pragma once

#include <string>

#include "game/tetris.h"

namespace kel::game {

/// The game's whole screen as terminal text (ANSI sequences): the well with the piece in
/// play, where it would land, and beside it the score, lines, level, the next piece and the
/// keys; a game that is over says so. Drawn from the top left corner over the last screen.
std::string DrawTetris(const Tetris& game);

}  // namespace kel::game
