#include "QUVA_Records.h"

#include <cstdlib>

namespace QUVA {

int32_t NumberOf(const std::string& text) {
  return static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

bool IsLater(const std::string& a, const std::string& b) {
  return a.compare(b) > 0;
}

int SplitRecord(const std::string& line, QUVA_InferenceDB& out) {
  std::vector<std::string> fields;
  for (size_t from = 0, comma = 0; comma != std::string::npos; from = comma + 1) {
    comma = line.find(',', from);
    fields.push_back(line.substr(from, comma - from));
  }
  const int count = static_cast<int>(fields.size());
  fields.resize(5);
  out = {NumberOf(fields[0]), NumberOf(fields[1]), NumberOf(fields[2]), fields[3], fields[4]};
  return count;
}

int SplitRecord(const std::string& line, QUVA_SolutionDB& out) {
  QUVA_InferenceDB fields;
  const int count = SplitRecord(line, fields);
  out = {fields.issue_code, fields.tr_type, fields.status, NumberOf(fields.detail), fields.last_update_time};
  return count;
}

}  // namespace QUVA
