#include "channel.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <cerrno>
#include <sstream>

namespace keltipc {
namespace {

struct Case {
  const char* claim;
  std::size_t depth;
  WhenFull when_full;
  const char* steps;  ///< r1: request 1 reads; R1: without waiting; w1=ab, W1=ab; i1: is interrupted; ?; end
  const char* answers;
};

/// The channel, its requests played one by one, and what they were answered.
class Play {
 public:
  explicit Play(const Case& played) : queue(played.depth, played.when_full, 0, notes) {
    std::istringstream steps(played.steps);
    for (std::string step; steps >> step;) take(step);
  }

  std::string answers() const { return notes.str() + queue.counts(); }

 private:
  void take(const std::string& step) {
    const std::string name = step.substr(1, 1);
    static const char ids[128] = {};
    const Channel::Id id = &ids[static_cast<unsigned char>(step[1]) % sizeof ids];
    const bool may_wait = std::islower(step[0]) != 0;
    if (step == "end") {
      channel.end(ENODEV);
    } else if (step == "?") {
      const unsigned int events = channel.events();
      notes << ((events & POLLIN) != 0 ? "in" : "") << ((events & POLLOUT) != 0 ? "out" : "") << "; ";
    } else if (step[0] == 'i') {
      channel.interrupt(id);
    } else if (std::tolower(step[0]) == 'r') {
      channel.read(id, 3, may_wait, [this, name](int error, const std::string& message) {
        notes << name << ":" << (error != 0 ? strerrorname_np(error) : message) << "; ";
      });
    } else {
      channel.write(id, step.substr(3), may_wait, [this, name](int error, std::size_t written) {
        notes << name << ":" << (error != 0 ? strerrorname_np(error) : std::to_string(written)) << "; ";
      });
    }
  }

  std::ostringstream notes;
  MessageQueue queue;
  Channel channel{queue, 4, [] {}};
};

constexpr Case cases[] = {
    {"messages keep their bounds and their order", 9, WhenFull::block, "w1=a w2=bc r3 r4",
     "1:1; 2:2; 3:a; 4:bc; 2 messages passed, 0 dropped, 0 not read"},
    {"readers wait, and are served as they came", 9, WhenFull::block, "r1 r2 w3=a w4=b",
     "3:1; 1:a; 4:1; 2:b; 2 messages passed, 0 dropped, 0 not read"},
    {"writers wait for room, and are let in as they came", 1, WhenFull::block, "w1=a w2=b w3=c r4 r5 r6",
     "1:1; 4:a; 2:1; 5:b; 3:1; 6:c; 3 messages passed, 0 dropped, 0 not read"},
    {"a full queue that drops keeps the oldest and makes nobody wait", 1, WhenFull::drop, "w1=a ? w2=b W3=c r4 R5",
     "1:1; inout; 2:1; 3:1; 4:a; 5:EAGAIN; 1 messages passed, 2 dropped, 0 not read"},
    {"who may not wait is told so", 1, WhenFull::block, "R1 W2=a W3=b R4",
     "1:EAGAIN; 2:1; 3:EAGAIN; 4:a; 1 messages passed, 0 dropped, 0 not read"},
    {"poll tells what goes on at once", 1, WhenFull::block, "? w1=a ? w2=b ? r3 ? r4 ?",
     "out; 1:1; in; in; 3:a; 2:1; in; 4:b; out; 2 messages passed, 0 dropped, 0 not read"},
    {"an interrupted request leaves no trace", 1, WhenFull::block, "r1 i1 w2=a w3=b w4=c i3 i2 i9 r5 r6",
     "1:EINTR; 2:1; 3:EINTR; 5:a; 4:1; 6:c; 2 messages passed, 0 dropped, 0 not read"},
    {"a message longer than a frame is refused, full or not", 1, WhenFull::block, "w1=abcde w2=a w3=abcde",
     "1:EMSGSIZE; 2:1; 3:EMSGSIZE; 0 messages passed, 0 dropped, 1 not read"},
    {"what a read has no room for is lost with its message", 9, WhenFull::block, "w1=abcd w2=e r3 r4",
     "1:4; 2:1; 3:abc; 4:e; 2 messages passed, 0 dropped, 0 not read"},
    {"the end reaches all that wait", 1, WhenFull::block, "r1 r2 end w3=a w4=b end",
     "1:ENODEV; 2:ENODEV; 3:1; 4:ENODEV; 0 messages passed, 0 dropped, 1 not read"},
};

TEST(Channel, AnswersAsAMessageDeviceDoes) {
  for (const Case& played : cases) {
    SCOPED_TRACE(played.claim);
    EXPECT_EQ(Play(played).answers(), played.answers);
  }
}

}  // namespace
}  // namespace keltipc
