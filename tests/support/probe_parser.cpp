// A parser plug-in of another version, which has one of the entries only.

#include "QUVA_ParserPlugin.h"

int ParseSolutionMap() {
  return 0;
}
