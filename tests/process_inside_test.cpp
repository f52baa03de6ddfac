// What the process does with signals and with an index past the end, where no run shows it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string_view>

#include "platform/platform.h"

namespace {

TEST(Process, a_signal_that_has_come_ends_a_later_wait_too) {
  const auto is_ended = [] {
    int silent[2];
    EXPECT_EQ(pipe(silent), 0);
    platform::signals_hold();
    raise(SIGTERM);
    platform::signals_let_in(true);
    platform::signals_let_in(false);
    platform::signals_let_in(true);
    ::alarm(20);  // would end it without the reminder
    char byte = 0;
    return read(silent[0], &byte, 1) < 0 && errno == EINTR && ::alarm(0) > 10;
  };
  EXPECT_EXIT(std::_Exit(is_ended() ? 0 : 1), testing::ExitedWithCode(0), "");
}

#ifndef __SANITIZE_ADDRESS__
TEST(Process, an_index_past_the_end_is_said_and_ends_it) {
  const std::string_view text = "index";
  const char said[] = "^qarn: an index is past the end: this is a fault of qarn\n$";
  EXPECT_EXIT(std::putchar(text[text.size()]), testing::KilledBySignal(SIGABRT), said);
  EXPECT_EXIT(text.substr(text.size() + 1), testing::KilledBySignal(SIGABRT), said);
}
#endif

}  // namespace
