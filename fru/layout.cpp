// The layout of the areas.
#include "fru/layout.h"

namespace {

constexpr fru_text CHASSIS_TEXTS[] = {
    &fru_info::chassis_part_number,
    &fru_info::chassis_serial_number,
};
constexpr fru_text BOARD_TEXTS[] = {
    &fru_info::board_manufacturer, &fru_info::board_product_name, &fru_info::board_serial_number,
    &fru_info::board_part_number,  &fru_info::board_fru_file_id,
};
constexpr fru_text PRODUCT_TEXTS[] = {
    &fru_info::product_manufacturer,  &fru_info::product_name,
    &fru_info::product_part_number,   &fru_info::product_version,
    &fru_info::product_serial_number, &fru_info::product_asset_tag,
    &fru_info::product_fru_file_id,
};

}  // namespace

constinit const fru_layout FRU_AREAS[FRU_AREA_COUNT] = {
    {"chassis area", "_SEE_CHASSIS", FRU_HEADER_CHASSIS, 3, true, &fru_info::chassis_format,
     &fru_info::chassis_len, &fru_info::chassis_type, nullptr, CHASSIS_TEXTS,
     &fru_info::chassis_custom, &fru_info::chassis_custom_count, &fru_info::chassis_checksum},
    {"board area", "_SEE_BOARD", FRU_HEADER_BOARD, 6, false, &fru_info::board_format,
     &fru_info::board_len, &fru_info::board_language, &fru_info::board_mfg_date, BOARD_TEXTS,
     &fru_info::board_custom, &fru_info::board_custom_count, &fru_info::board_checksum},
    {"product area", "_SEE_PRODUCT", FRU_HEADER_PRODUCT, 3, false, &fru_info::product_format,
     &fru_info::product_len, &fru_info::product_language, nullptr, PRODUCT_TEXTS,
     &fru_info::product_custom, &fru_info::product_custom_count, &fru_info::product_checksum},
};
