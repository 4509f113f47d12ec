// The verbs of the report program, each in files of its own.
#pragma once

#include "survey/arguments.h"

// Whether a redirection would be refused, and what would move (plan.cpp).
Answer RunPlan(const Arguments& arguments);
