// What several commands say.
#pragma once

#include <string>

// Tells on the console that the target folder exists already: contents are merged into it.
void SayThatTargetExists(const std::u16string& target);

void LogMoveFailed(const std::u16string& source, const std::u16string& target);
