// The verbs of the report program, each in files of its own.
#pragma once

#include "survey/arguments.h"

// Whether a redirection would be refused, and what would move (plan.cpp).
Answer RunPlan(const Arguments& arguments);
// What is redirected on this machine, and whether it is whole (list_verb.cpp).
Answer RunList(const Arguments& arguments);
// The commands that bring it home (undo_verb.cpp).
Answer RunUndo(const Arguments& arguments);
