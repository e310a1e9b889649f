#pragma once

// What an update would change, shown to whoever decides about it. Everything in it comes from strangers.

#include <string>

#include "cli/Session.h"
#include "engine/IncomingUpdate.h"
#include "engine/UpdateView.h"
#include "foundations/ModelsJSON.h"

namespace orvanta::cli {

// "2 changed, 1 added, 1 removed".
std::string figuresOf(const std::vector<SkillFileChange>& changes);

// The files, what is easily overlooked, and the differences line by line.
void showView(const Terminal& terminal, const UpdateView& view);

Json viewAsJson(const IncomingUpdate& update, const UpdateView& view);

}  // namespace orvanta::cli
