#include "game/tetris_command.h"

#include "core/console.h"
#include "game/tetris.h"
#include "game/tetris_view.h"
#include "platform/clock.h"
#include "platform/console.h"

namespace kel {
namespace {

using platform::Key;
using platform::KeyCode;

enum class Action { kNone, kLeft, kRight, kTurn, kTurnBack, kFall, kDrop, kQuit };

Action ActionOf(const Key& key) {
  switch (key.code) {
    case KeyCode::kLeft: return Action::kLeft;
    case KeyCode::kRight: return Action::kRight;
    case KeyCode::kUp: return Action::kTurn;
    case KeyCode::kDown: return Action::kFall;
    case KeyCode::kEscape:
    case KeyCode::kInterrupt: return Action::kQuit;
    case KeyCode::kCharacter: break;
    case KeyCode::kNone: return Action::kNone;
  }
  switch (key.character) {
    case 'a':
    case 'A': return Action::kLeft;
    case 'd':
    case 'D': return Action::kRight;
    case 'w':
    case 'W': return Action::kTurn;
    case 'z':
    case 'Z': return Action::kTurnBack;
    case 's':
    case 'S': return Action::kFall;
    case ' ': return Action::kDrop;
    case 'q':
    case 'Q': return Action::kQuit;
    default: return Action::kNone;
  }
}

// Plays until the player ends the game or it is over and a key is pressed.
void Play(platform::RawConsole& console, game::Tetris& game) {
  uint64_t next_fall = platform::MonotonicMs() + game.GravityMs();
  while (true) {
    ConsoleWrite(game::DrawTetris(game));
    if (game.Over()) {
      while (console.ReadKey(1000).code == KeyCode::kNone) {
      }
      return;
    }
    const uint64_t now = platform::MonotonicMs();
    const Key key = console.ReadKey(next_fall > now ? static_cast<int>(next_fall - now) : 0);
    switch (ActionOf(key)) {
      case Action::kNone: break;
      case Action::kLeft: game.Shift(-1); break;
      case Action::kRight: game.Shift(1); break;
      case Action::kTurn: game.Rotate(true); break;
      case Action::kTurnBack: game.Rotate(false); break;
      case Action::kFall:
        game.SoftDrop();
        next_fall = platform::MonotonicMs() + game.GravityMs();
        break;
      case Action::kDrop:
        game.HardDrop();
        next_fall = platform::MonotonicMs() + game.GravityMs();
        break;
      case Action::kQuit: return;
    }
    if (platform::MonotonicMs() >= next_fall) {
      game.Tick();
      next_fall = platform::MonotonicMs() + game.GravityMs();
    }
  }
}

}  // namespace

ResultCode HandleTetris(const CommandEntry& /*entry*/, std::string_view& /*rest*/, Output& out) {
  uint32_t score = 0;
  uint32_t lines = 0;
  {
    platform::RawConsole console;
    if (!console.Active()) return kOk;
    game::Tetris game(platform::MonotonicNs());
    Play(console, game);
    score = game.Score();
    lines = game.Lines();
  }
  return static_cast<ResultCode>(out.Printf("Score %u, lines %u\r\n", score, lines));
}

}  // namespace kel
