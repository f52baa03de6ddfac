// Small operations on the BMC itself: identity, users, passwords, cold reset, one raw request.
#pragma once
#include <cstdint>

// Prints the identity line (Get Device ID, IPMI v2.0 table 20-2). 1, or 0 when the BMC refused.
int show_fw_version();

// Prints the names of user IDs 1 to 5 (Get User Name, table 22-31), up to the first refusal.
void DispalyUsersName();

// Sets the password of user ID index + 1 to 16 bytes (Set User Password, table 22-32). 1 when the
// BMC accepted it, else 0; null sends nothing.
int SetUserPwd(int index, const char* password);

// Cold Reset (table 20-3), then 8 seconds for the BMC to come back.
void resetBMC();

// Sends a ready request of 1 to 1024 bytes; `print` shows the response. 1 when its completion code
// is 0, else 0.
int cmdExecute(const uint8_t* request, unsigned length, int print);
