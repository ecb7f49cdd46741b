#pragma once
/// @file
/// Facts of the set that do not change while it runs: its profile and its features.
///
/// Thread rule: callable from any thread. Nothing is cached by the caller's side of the contract; a call may read a
/// small file but waits for nobody.
///
/// Every function returns SYSTEM_INFO_ERROR_NONE (0) or a negative error, and leaves the output untouched then.
/// Texts are allocated with malloc; the caller frees them with free().

extern "C" {

enum {
  SYSTEM_INFO_ERROR_NONE = 0,
  SYSTEM_INFO_ERROR_INVALID_PARAMETER = -22,  ///< a null pointer, or a key of another type
  SYSTEM_INFO_ERROR_NO_DATA = -61,            ///< this set does not say
};

/// Keys of the set's profile. The numbers are the platform's.
typedef enum {
  SYSTEM_INFO_KEY_SW_MODEL = 0,        ///< text: software model
  SYSTEM_INFO_KEY_MODEL_NAME = 3,      ///< text: model name, "AB55X100"
  SYSTEM_INFO_KEY_SERIAL_NUMBER = 12,  ///< text
  SYSTEM_INFO_KEY_REGION_KIND = 41,    ///< int: 1 to 34, the broadcasting region
  SYSTEM_INFO_KEY_NUM_OF_TUNER = 57,   ///< int: 0 or more
  SYSTEM_INFO_KEY_LOCAL_SET = 90,      ///< text: regional variant, "KOR"
} system_info_key_e;

/// The menu languages of the set, 0 to 87; the names and locales are the application's.
typedef int system_info_language_e;

int system_info_get_value_int(system_info_key_e key, int* value);
int system_info_get_value_string(system_info_key_e key, char** value);

/// Features, by name: "com.tornelo/featureconf/product.chipset".
int system_info_get_custom_int(const char* key, int* value);
int system_info_get_custom_bool(const char* key, bool* value);
int system_info_get_custom_string(const char* key, char** value);

/// The size, in bytes, of the disk that carries the applications' partition; where that is on none (in memory, layered,
/// from elsewhere), of its file system.
int system_info_get_storage_size(long long* bytes);
}
