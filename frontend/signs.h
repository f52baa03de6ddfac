// Signs that a command line is not what it was meant to be.
#pragma once

struct Options;

// Notes a sign; `text` has one %s for the word. Both must outlive the record.
void note_argument(Options* options, const char* text, const char* word);

// Of the whole command line, before it is parsed: a long name after one dash, a password that is
// not attached to its option. That word is overwritten with zeros. Sets `strict` if it will be
// given.
void look_at_words(int argc, char** argv, Options* options);
// Of the words that no option took, after it was parsed.
void look_at_rest(int count, char** words, Options* options);

// Of the actions: one that is given, but left out because one before it ends the run.
void look_at_actions(Options* options);

// Of a value. A MAC address has six bytes, an address four decimal numbers, a net mask no holes.
void look_at_address(const char* value, Options* options);
void look_at_netmask(const char* value, Options* options);
void look_at_mac(const char* value, Options* options);
void look_at_arp(const char* value, Options* options);
void look_at_raw(const char* value, Options* options);

// A warning for each.
void tell_argument_signs(const Options& options);
