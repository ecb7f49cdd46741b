#pragma once
/// @file
/// What goes into error reports besides meta.json.
///
/// Thread rule: callable from any thread. Calls block, for ten seconds where a program does not answer.

#include <functional>
#include <string>

#include "setd/jobs.h"

namespace setd {

/// Whether reports have a category of that name.
bool IsCategory(const std::string& category);

/// Collects what fits the category and hands over each as the file of that name, or, when it could not be read, with
/// an empty text and the reason. The texts are as they were found, private data included. Ends early, with less, when
/// it is to stop.
using TakeSource = std::function<void(const std::string& file, const std::string& text, const std::string& problem)>;
void Collect(const std::string& category, const StopFlag& stop, const TakeSource& take);

}  // namespace setd
