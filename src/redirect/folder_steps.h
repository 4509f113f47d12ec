// Steps that the two forms of folder redirection - onto a folder, onto a volume - have in common.
#pragma once

#include <string>

// What every command on a redirection asks first: is the caller an administrator (the console says when not), and are
// both paths given (if not, the log gets `pathMissing`)?
bool MayBegin(const char16_t* source, const char16_t* target, const char16_t* pathMissing);

// Are both ends of a redirection that is to be removed there? The first that is not has its line in the log.
bool AreThere(const std::u16string& source, const std::u16string& target);

// Will the removal be let do what it must in `folder`, where the contents of `source` come back to? A refusal has its
// line in the log.
bool MayBeBroughtBack(const std::u16string& source, const std::u16string& folder);

// Of a redirection that is recorded: when `source` is an ordinary folder, the log tells that the way back was cut off
// (a power failure), and what to do. When it is, or was, the folder of a profile that is in `target`, the log names the
// command for that.
void TellIfRemovalWasCutOff(const std::u16string& source, const std::u16string& target);
// When `source` is a junction to `target` that no record names, the log tells the same of the way there.
void TellIfRedirectionWasCutOff(const std::u16string& source, const std::u16string& target);
