#include <gtest/gtest.h>
#include <sys/uio.h>

#include "logging/logging.h"

static std::string fields;

/// Replaces libsystemd's function.
extern "C" int sd_journal_sendv(const iovec* parts, int count) {
  for (int i = 0; i < count; ++i)
    fields += std::string(static_cast<char*>(parts[i].iov_base), parts[i].iov_len) + "|";
  return 0;
}

TEST(TheJournal, GetsAFieldForEachPartOfALine) {
  ecu::vorn::logging::journal_sink(4, "app.door", "half\nopen");
  EXPECT_EQ(fields, "MESSAGE=half\nopen|PRIORITY=4|KELT_MODULE=app.door|");
}
