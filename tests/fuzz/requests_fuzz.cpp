#include "fuzz.h"
#include "fuzz_files.h"
#include "packages/package.h"
#include "request_files.h"
#include "setd/request.h"

/// Its parts are the name of a trigger, what is in it, and what is in the payload beside it.
void FuzzOne(std::string_view bytes) {
  const std::string trigger(TakePart(bytes));
  if (!setd::IsRequestName(trigger) || !packages::IsId(trigger)) return;
  WriteFile(tager::TriggerPath(trigger), TakePart(bytes));
  WriteFile(tager::PayloadPath(trigger), bytes);
  setd::Request request;
  std::string problem;
  const setd::ReadState state = setd::ReadRequest(trigger, true, request, problem);
  Promise(state == setd::ReadState::kReady || state == setd::ReadState::kRefused, "a request is taken or refused");
  if (state == setd::ReadState::kRefused) {
    Promise(!problem.empty(), "a refusal has a reason");
    Promise(setd::RemoveRefused(trigger), "what is refused is removed");
  } else {
    Promise(request.packageId.empty() || packages::IsId(request.packageId), "a package's id is one");
    Promise(request.appId.empty() || packages::IsId(request.appId), "an application's id is one");
    Promise(setd::RemoveServed(request), "what is served is removed");
  }
}
