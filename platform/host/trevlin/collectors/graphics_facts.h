#pragma once
/// @file
/// Graphics cards: whether they draw, and whether they could decode videos that the processor has to.

#include "trevlin/facts.h"

namespace trevlin {

/// Adds display.software_drawing and display.decoder_missing of docs/facts.md, of cards on PCI.
void AddGraphicsFacts(const Machine& machine, Facts& facts);

}  // namespace trevlin
