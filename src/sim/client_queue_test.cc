#include "sim/client_queue.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kel::sim {
namespace {

constexpr QueueLimits kLimits{
    .full_bytes = 64, .relieved_bytes = 32, .stall_ms = 100, .close_ms = 1000};

// Appends `frames` 16-byte frames at `now`; how many found room.
int Fill(ClientQueue& queue, int frames, uint64_t now) {
  int taken = 0;
  for (int i = 0; i < frames; ++i) taken += queue.Append(16, now) != nullptr ? 1 : 0;
  return taken;
}

TEST(ClientQueueTest, AQueueThatIsReadSlowlyHoldsAndOneThatIsNotReadLosesThenExpires) {
  ClientQueue queue;
  queue.SetLimits(kLimits);
  // Nothing owed until 1000: the idle time starts when bytes begin to wait.
  EXPECT_EQ(4, Fill(queue, 4, 1000));
  EXPECT_FALSE(queue.Update(1099));
  EXPECT_EQ(QueueState::kFlowing, queue.State()) << "full means more than 64 bytes";
  EXPECT_EQ(0U, queue.NextDeadlineMs());
  EXPECT_EQ(1, Fill(queue, 1, 1099));
  EXPECT_TRUE(queue.Update(1099));
  EXPECT_EQ(QueueState::kFull, queue.State()) << "read 99 ms ago: slow, not stuck";
  EXPECT_EQ(1100U, queue.NextDeadlineMs());
  queue.Consume(16, 1150);  // it takes a frame: the stall clock starts again
  EXPECT_EQ(1, Fill(queue, 1, 1150));
  EXPECT_FALSE(queue.Update(1249));
  EXPECT_EQ(QueueState::kFull, queue.State()) << "still full, still reading";
  EXPECT_TRUE(queue.Update(1250));
  EXPECT_EQ(QueueState::kNotReading, queue.State());
  EXPECT_EQ(0, Fill(queue, 3, 1250)) << "full and not read: frames are lost";
  EXPECT_EQ(3U, queue.Lost());
  EXPECT_FALSE(queue.Expired(2149));
  EXPECT_TRUE(queue.Expired(2150));
  // Taking bytes is not enough to count as read again: it must catch up.
  queue.Consume(32, 1300);
  EXPECT_FALSE(queue.Update(1300));
  EXPECT_EQ(1, Fill(queue, 1, 1300)) << "below full: room again";
  queue.Consume(48, 1310);
  EXPECT_TRUE(queue.Update(1310));
  EXPECT_EQ(QueueState::kFlowing, queue.State());
  EXPECT_EQ(16U, queue.Size());
  EXPECT_EQ(3U, queue.Lost()) << "counted for the connection's life";
}

TEST(ClientQueueTest, BytesLeaveInTheOrderTheyCameAcrossGrowthAndCompaction) {
  ClientQueue queue;
  uint32_t appended = 0;  // byte i holds i % 251
  uint32_t consumed = 0;
  for (int round = 0; round < 400; ++round) {
    for (int i = 0; i < 50; ++i) {
      uint8_t* room = queue.Append(16, 0);
      ASSERT_NE(nullptr, room);
      for (int b = 0; b < 16; ++b) room[b] = static_cast<uint8_t>(appended++ % 251);
    }
    // Uneven sends, some leaving the front half used: the queue moves its bytes forward.
    const size_t n = std::min<size_t>(queue.Size(), 700 + 37 * static_cast<size_t>(round % 5));
    for (size_t k = 0; k < n; ++k) {
      ASSERT_EQ(static_cast<uint8_t>((consumed + k) % 251), queue.Data()[k]) << round;
    }
    queue.Consume(n, 0);
    consumed += static_cast<uint32_t>(n);
    ASSERT_EQ(appended - consumed, queue.Size());
  }
}

}  // namespace
}  // namespace kel::sim
