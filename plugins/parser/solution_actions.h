#pragma once

#include <string>

namespace solution_actions {

/// Launches the application that `request` names: its id and then key=value words for its extra data, separated by
/// single blanks; %20 and %25 stand for a blank and a percent sign inside a value.
/// Each function here returns one of the values of QUVA_ParserPlugin.h; SOLUTION_FAILED after a log line that says why.
/// Main thread or a worker.
int Launch(const std::string& request);

/// Does what one parameter of a solution says (docs/solution-map.md). Where it fails and the viewer can be told more
/// than that, `advice` is the text for it, in the menu language.
int Perform(const std::string& type, const std::string& value, std::string& advice);

}  // namespace solution_actions
