// Numbers of the IPMI standard (v2.0), and of the daughter card, that a request or a response
// holds.
#pragma once
#include <cstdint>

inline constexpr uint8_t BMC_ADDRESS = 0x20;  // responder address of the BMC itself

// Where a request's data begins: after address, network function with LUN, and command.
inline constexpr unsigned REQUEST_DATA = 3;

// The second byte of a request: network function shifted left by two, LUN 0 in the low bits
// (table 5-1). A response has the function's bit 0 set: RESPONSE_BIT.
inline constexpr uint8_t NETFN_APP = 0x18;
inline constexpr uint8_t NETFN_FIRMWARE = 0x20;
inline constexpr uint8_t NETFN_STORAGE = 0x28;
inline constexpr uint8_t NETFN_TRANSPORT = 0x30;
inline constexpr uint8_t NETFN_CARD = 0xF8;  // the daughter card's own
inline constexpr uint8_t RESPONSE_BIT = 1 << 2;

// The third byte of a request: the command (table G-1), and the section that lays it out.
inline constexpr uint8_t GET_DEVICE_ID = 0x01;        // App, 20.1
inline constexpr uint8_t COLD_RESET = 0x02;           // App, 20.2
inline constexpr uint8_t WARM_RESET = 0x03;           // App, 20.3
inline constexpr uint8_t GET_SELF_TEST = 0x04;        // App, 20.4
inline constexpr uint8_t CLEAR_MESSAGE_FLAGS = 0x30;  // App, 22.3
inline constexpr uint8_t GET_MESSAGE = 0x33;          // App, 22.6
inline constexpr uint8_t SEND_MESSAGE = 0x34;         // App, 22.7
inline constexpr uint8_t GET_CHANNEL_INFO = 0x42;     // App, 22.24
inline constexpr uint8_t GET_USER_ACCESS = 0x44;      // App, 22.27
inline constexpr uint8_t GET_USER_NAME = 0x46;        // App, 22.29
inline constexpr uint8_t SET_USER_PASSWORD = 0x47;    // App, 22.30

inline constexpr uint8_t SET_LAN_PARAMETERS = 0x01;  // Transport, 23.1
inline constexpr uint8_t GET_LAN_PARAMETERS = 0x02;  // Transport, 23.2

inline constexpr uint8_t GET_FRU_AREA_INFO = 0x10;  // Storage, 34.1
inline constexpr uint8_t READ_FRU_DATA = 0x11;      // Storage, 34.2
inline constexpr uint8_t WRITE_FRU_DATA = 0x12;     // Storage, 34.3
inline constexpr uint8_t GET_SDR_INFO = 0x20;       // Storage, 33.9
inline constexpr uint8_t RESERVE_SDR = 0x22;        // Storage, 33.11
inline constexpr uint8_t GET_SDR = 0x23;            // Storage, 33.12
inline constexpr uint8_t ADD_SDR = 0x24;            // Storage, 33.13
inline constexpr uint8_t PARTIAL_ADD_SDR = 0x25;    // Storage, 33.14
inline constexpr uint8_t CLEAR_SDR = 0x27;          // Storage, 33.16
inline constexpr uint8_t GET_SEL_INFO = 0x40;       // Storage, 31.2
inline constexpr uint8_t RESERVE_SEL = 0x42;        // Storage, 31.4
inline constexpr uint8_t GET_SEL_ENTRY = 0x43;      // Storage, 31.5
inline constexpr uint8_t ADD_SEL_ENTRY = 0x44;      // Storage, 31.6
inline constexpr uint8_t CLEAR_SEL = 0x47;          // Storage, 31.9

// Of the daughter card's downloader, NetFn Firmware.
inline constexpr uint8_t GET_FLASH_INFORMATION = 0x01;
inline constexpr uint8_t ENTER_DOWNLOADER = 0x02;
inline constexpr uint8_t READ_FLASH = 0x03;
inline constexpr uint8_t WRITE_FLASH_CHUNK = 0x04;
inline constexpr uint8_t END_FLASH_BLOCK = 0x05;
// Of the card itself, NetFn NETFN_CARD: which MAC address it has.
inline constexpr uint8_t GET_CARD_MAC = 0x84;

// Completion codes (table 5-2).
inline constexpr uint8_t COMPLETED = 0x00;
inline constexpr uint8_t NODE_BUSY = 0xC0;
inline constexpr uint8_t INVALID_COMMAND = 0xC1;
inline constexpr uint8_t OUT_OF_SPACE = 0xC4;
inline constexpr uint8_t RESERVATION_CANCELLED = 0xC5;
inline constexpr uint8_t INVALID_LENGTH = 0xC7;
inline constexpr uint8_t PARAMETER_OUT_OF_RANGE = 0xC9;
inline constexpr uint8_t NOT_PRESENT = 0xCB;
inline constexpr uint8_t INVALID_DATA = 0xCC;
inline constexpr uint8_t WRONG_STATE = 0xD5;
inline constexpr uint8_t UNSPECIFIED = 0xFF;
