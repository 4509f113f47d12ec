// The record of every redirection in the machine's registry (32-bit view): numbered keys with the values "Source" and
// "Target" below SOFTWARE\Velmora\Quillbay\Junctions (isFile 0: folders) and ...\FileJunctions (isFile 1: files).
//
// Operations answer 1 or 0 and never throw. Failures of the registry go to the debugger; the callers log their own
// line.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Records a redirection under the number after the largest one in use. 0 for a pair that is recorded already (letter
// case does not count), for two null paths and when the registry refuses.
int AddJunctionRegKey(const char16_t* source, const char16_t* target, int isFile);

// Both values of a record, by its key below HKEY_LOCAL_MACHINE. With or without their terminator; 0 when one is
// missing, is not a text or does not fit 499 characters: that one is empty then.
int ReadKeyValues(const std::u16string& subkey, std::u16string& source, std::u16string& target);

// The key of the first record of this pair (letter case does not count); empty when there is none.
std::u16string FindJunctionRegKey(const char16_t* source, const char16_t* target, int isFile);
int JunctionRegKeyExists(const char16_t* source, const char16_t* target, int isFile);

// Deletes the pair's record. 0 when there is none (logged) or the registry refuses.
int DeleteRegKey(const char16_t* source, const char16_t* target, int isFile);

// Is there any record? True also when the registry does not tell.
bool MayHaveJunctionRecords(int isFile);

// Could a record be added? Nothing is changed.
bool CanAddJunctionRegKey(int isFile);

// The number for a new record.
std::uint64_t GetNextJunctionIndex(int isFile);

// Source to target, ordered by source. Records without a source or target are left out; of several with the same source
// the last counts.
void GetJunctionRecords(int isFile, std::map<std::u16string, std::u16string>& records);

// Data moved from oldPath to newPath: every record that names oldPath or what lies below it names the new place
// afterwards. 0 for a null path only.
int UpdateJunctionRegKeys(const char16_t* oldPath, const char16_t* newPath, int isFile);

// Prints the records, one a line; nothing at all when there are none. Always 1.
int ListJunctions(int isFile);

// The records of a list as they stand, to put them back should a redirection fail after it rewrote them.
struct JunctionRecord {
  std::u16string subkey, source, target;
};
// The record's number: of two, the later one has the larger.
std::uint64_t NumberOf(const JunctionRecord& record);
// All that have a source and a target. False when the registry did not tell all of them; those that it told are there.
bool ReadJunctionRecords(int isFile, std::vector<JunctionRecord>& records);
// The same with those that lack their source or target, which is empty then.
bool ReadWholeAndHalfRecords(int isFile, std::vector<JunctionRecord>& records);
// ReadJunctionRecords for those to whom a list in part will do.
std::vector<JunctionRecord> SaveJunctionRecords(int isFile);
// False when one of them does not hold again what it held.
bool RestoreJunctionRecords(const std::vector<JunctionRecord>& saved);

// UpdateJunctionRegKeys for all records but those of the pair `own` (its subkey does not matter), and a look whether
// they say so now. False: one of them may still name oldPath.
bool UpdateOtherJunctionRecords(const std::u16string& oldPath, const std::u16string& newPath, int isFile,
                                const JunctionRecord& own);

// Data moved from oldPath to newPath: the folders' records follow, and are read again into `records`. False when one
// still names the old place, or the registry does not tell; the log names it.
bool UpdateRecords(const std::u16string& oldPath, const std::u16string& newPath, std::vector<JunctionRecord>& records);
