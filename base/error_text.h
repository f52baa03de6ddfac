// The last-error text: why the last SDR, SEL or LAN operation failed.
#pragma once

inline constexpr unsigned ERR_MESSAGE_SIZE = 32;
extern char err_message[ERR_MESSAGE_SIZE];

// Formats the text and cuts it to 31 characters and a terminator.
[[gnu::format(printf, 1, 2)]] void set_err_message(const char* format, ...);

// Why the last file or action was refused, more fully: what keep_refusal was given last, cut to 159
// characters; empty from forget_refusal on.
const char* refusal();
[[gnu::format(printf, 1, 2)]] void keep_refusal(const char* format, ...);
void forget_refusal();
