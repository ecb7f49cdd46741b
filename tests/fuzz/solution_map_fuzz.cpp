#include <stdexcept>

#include "QUVA_XMLParser.h"
#include "fuzz.h"

void FuzzOne(std::string_view bytes) {
  QUVA::QUVA_SolutionMap map;
  try {
    QUVA::TCXMLParser().Parse(std::string(bytes), map);
  } catch (const std::out_of_range&) {  // a value before any solution
    Promise(map.solutions.empty(), "only a value before any solution is out of range");
  }
}
