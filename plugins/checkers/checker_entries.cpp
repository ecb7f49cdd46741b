#include "checker.h"
#include "menu_checker.h"

int check_enable_int(const char* key, int value) {
  return checker::Equals(key, value);
}
int check_enable_bool(const char* key, bool value) {
  return checker::Equals(key, value);
}
int check_enable_string(const char* key, const char* value) {
  return checker::Equals(key, value);
}
int check_enable_double(const char* key, double value) {
  return checker::Equals(key, value);
}
int check_visibility_int(const char* key, int value) {
  return checker::Equals(key, value);
}
int check_visibility_bool(const char* key, bool value) {
  return checker::Equals(key, value);
}
int check_visibility_string(const char* key, const char* value) {
  return checker::Equals(key, value);
}
int check_visibility_double(const char* key, double value) {
  return checker::Equals(key, value);
}
