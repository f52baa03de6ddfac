// FRU inventory: the model, the device that holds it, its image and its text form.
#pragma once
#include <cstdint>
#include <memory>
#include <span>

// The layout is that of the IPMI FRU Information Storage Definition 1.0: a common header, then
// areas whose offsets and lengths count in units of 8 bytes.
inline constexpr unsigned FRU_UNIT = 8;
inline constexpr unsigned FRU_HEADER_SIZE = 8;
inline constexpr unsigned FRU_UNITS_LIMIT = 255;   // of an area's offset and of its length
inline constexpr unsigned FRU_TEXT_LIMIT = 63;     // bits 5:0 of a type/length byte
inline constexpr unsigned FRU_RECORD_HEADER = 5;   // type, format, length, two checksums
inline constexpr unsigned FRU_IMAGE_ROOM = 4096;   // an image's most bytes
inline constexpr unsigned FRU_READ_REQUEST = 7;    // bytes of a Read FRU Data request
inline constexpr unsigned FRU_READ_HEADER = 5;     // response bytes up to the count returned
inline constexpr unsigned FRU_AREA_ROOM = 2048;    // a response header and the longest area
inline constexpr unsigned FRU_ANY_SIZE = 0x10000;  // offsets have 16 bits
inline constexpr unsigned FRU_ID_LIST = 16;

// Bytes of `common_header`; 1 to 5 are offsets in units, 0 = no such area.
enum : unsigned {
  FRU_HEADER_FORMAT,
  FRU_HEADER_INTERNAL,
  FRU_HEADER_CHASSIS,
  FRU_HEADER_BOARD,
  FRU_HEADER_PRODUCT,
  FRU_HEADER_MULTIRECORD,
  FRU_HEADER_PAD,
  FRU_HEADER_CHECKSUM,
};

// A custom field: `len` bytes (0 to 63) and a NUL.
struct fru_field {
  std::unique_ptr<char[]> data;
  int32_t len = 0;
  std::unique_ptr<fru_field> next;
};

// A record of the multi-record area. The end-of-list bit follows from the position in the list.
struct fru_multirecord {
  uint8_t type_id = 0;
  uint8_t format = 0;  // 4 bits
  int32_t length = 0;  // 0 to 255
  uint8_t record_checksum = 0;
  uint8_t header_checksum = 0;
  int32_t data_size = 0;
  std::unique_ptr<uint8_t[]> data;
  std::unique_ptr<fru_multirecord> next;
};

// One FRU device. A text ends at its first NUL; an absent text is null. Area lengths
// (`chassis_len`, `board_len`, `product_len`) are in units, 0 = no such area. Checksums are as
// read, never used.
struct fru_info {
  std::unique_ptr<char[]> title;
  int32_t data_len = 0;
  uint8_t dev_access_addr = 0;
  uint8_t dev_slave_addr = 0;
  uint8_t dev_id = 0;
  uint8_t access_lun = 0;
  uint8_t bus_id = 0;
  uint8_t common_header[FRU_HEADER_SIZE] = {1};

  uint8_t internal_format = 1;
  int32_t internal_len = 0;  // bytes after the format
  std::unique_ptr<uint8_t[]> internal_data;

  uint8_t chassis_format = 1;
  int32_t chassis_len = 0;
  uint8_t chassis_type = 0;
  std::unique_ptr<char[]> chassis_part_number;
  std::unique_ptr<char[]> chassis_serial_number;
  std::unique_ptr<fru_field> chassis_custom;
  int32_t chassis_custom_count = 0;
  uint8_t chassis_checksum = 0;

  uint8_t board_format = 1;
  int32_t board_len = 0;
  uint8_t board_language = 0;
  uint8_t board_mfg_date[3] = {};
  std::unique_ptr<char[]> board_manufacturer;
  std::unique_ptr<char[]> board_product_name;
  std::unique_ptr<char[]> board_serial_number;
  std::unique_ptr<char[]> board_part_number;
  std::unique_ptr<char[]> board_fru_file_id;
  std::unique_ptr<fru_field> board_custom;
  int32_t board_custom_count = 0;
  uint8_t board_checksum = 0;

  uint8_t product_format = 1;
  int32_t product_len = 0;
  uint8_t product_language = 0;
  std::unique_ptr<char[]> product_manufacturer;
  std::unique_ptr<char[]> product_name;
  std::unique_ptr<char[]> product_part_number;
  std::unique_ptr<char[]> product_version;
  std::unique_ptr<char[]> product_serial_number;
  std::unique_ptr<char[]> product_asset_tag;
  std::unique_ptr<char[]> product_fru_file_id;
  std::unique_ptr<fru_field> product_custom;
  int32_t product_custom_count = 0;
  uint8_t product_checksum = 0;

  std::unique_ptr<fru_multirecord> multirecords;
  int32_t multirecord_count = 0;

  // What a plain dump would not bring back (fru/losses.h).
  uint32_t lost_texts = 0;
  uint32_t lost_types = 0;
  uint32_t lost_singles = 0;
  bool lost_format_bits = false;
  bool lost_padding = false;

  uint32_t inventory_size = 0;  // bytes, as the device reports; 0 = it does not report a size
};

struct fru_dev {
  std::unique_ptr<fru_info[]> records;
  int32_t count = 0;
};

// The records that the list holds.
inline unsigned fru_count(const fru_dev& dev) {
  return dev.records && dev.count > 0 ? static_cast<unsigned>(dev.count) : 0;
}

// Why a parser gave up, and at which byte of the area.
struct fru_fault {
  unsigned position = 0;
  const char* reason = "";
};

// The model. The destroy operations release everything that is there, and may be called twice; they
// return 1, destroy_fru_dev 0 for null. The init operations release nothing.
void init_fru_dev(fru_dev* dev);
int destroy_fru_dev(fru_dev* dev);
void init_fru_info(fru_info* fru);
int destroy_fru_info(fru_info* fru);

// The byte that makes the sum of `bytes` and itself 0 modulo 256.
uint8_t GetChecksum(std::span<const uint8_t> bytes);

// Read the areas of FRU device `dev_id` (Get FRU Inventory Area Info 0x10, Read FRU Data 0x11).
// get_fru_dev probes the devices and reads each; 1, or 0 when one had a fault, was none or memory
// ran out. The records stay until destroyed.
int get_fru_dev(fru_dev* dev);
// Fills both lists of `capacity` entries: the device IDs that answer (the others 0xFF) and their
// sizes in bytes, 0 when a device does not say. Returns how many answered.
unsigned getFruDeviceInfo(uint8_t* ids, uint32_t* sizes, unsigned capacity);
// One device: header, then areas in order up to the first fault. Each 1, or 0 on a fault; an absent
// area is 1.
int get_fru_info(fru_info* fru);
int GetCommonHeader(fru_info* fru);
int GetInternalInforArea(fru_info* fru);
int GetChassisInforArea(fru_info* fru);
int GetBoardInforArea(fru_info* fru);
int GetProductInforArea(fru_info* fru);
int GetMultirecordInforArea(fru_info* fru);
// Reads count x 8 bytes as the Read FRU Data request says, or the whole area when its count is 0,
// into `output`: first the response header, the area from byte 5 on. The sum of the counts the BMC
// reported; -1 when bytes are missing or the area has length 0.
int ReadFRUData(std::span<const uint8_t, FRU_READ_REQUEST> request,
                std::span<uint8_t, FRU_AREA_ROOM> output);

// Parse the bytes of an area, from its format byte on; fields and their end mark 0xC1 must lie in
// the first `end` of them. A length byte of 0 is an absent area. 1, or 0 with `fault` filled.
int GetChassis(std::span<const uint8_t> area, size_t end, fru_info* fru, fru_fault* fault);
int GetBoard(std::span<const uint8_t> area, size_t end, fru_info* fru, fru_fault* fault);
int GetProduct(std::span<const uint8_t> area, size_t end, fru_info* fru, fru_fault* fault);
// Parses multi-records up to the one with the end bit; a first byte of 0 means that there are none.
int GetMultirecord(std::span<const uint8_t> area, fru_info* fru, fru_fault* fault);

// Build and write images (Get FRU Inventory Area Info 0x10, Write FRU Data 0x12). write_fru_dev
// checks every image before it writes the first device; 1 when all are written or there are no
// records, else 0. Its caller says when nothing is under way any more.
int write_fru_dev(fru_dev* dev);
// 1, -1 when the device refuses, -2 when it is too small, 0 when the model does not fit an image.
int write_fru_info(fru_info* fru);
// Builds the image in `room` and returns the part of it in use; area lengths and internal use data
// in the model become those of the image. Null (data() is) when the model does not fit.
std::span<const uint8_t> build_fru_image(fru_info* fru, std::span<uint8_t, FRU_IMAGE_ROOM> room);
// 1, -1 when the device refuses, -2 when it is smaller than the image.
int WriteToFRU(std::span<const uint8_t> image, uint8_t id);
// Pads the internal use data so that its area fills whole units; 0 when memory runs out.
int process_internal(fru_info* fru);
// Set the area's length to what its texts and custom fields need.
void process_chassis(fru_info* fru);
void process_board(fru_info* fru);
void process_product(fru_info* fru);

// Reads a text file. 1, or 0 when it cannot be opened, has no "_DEV_ID" line or is refused; then
// the list is empty, a refusal's line number and reason have been printed, and refusal() says why.
int FileToFru(const char* path, fru_dev* dev);
// Warns of signs of a mistake in a file, if it is a regular one, and prints nothing else.
void look_at_fru_file(const char* path);
// Writes a text file. 1, or 0 when there are no records or the file could not be written whole.
int FruToFile(const char* path, const fru_dev* dev);
