#include "records/records.h"

#include <algorithm>
#include <array>
#include <exception>
#include <limits>

#include "report/console.h"
#include "report/debugger.h"
#include "report/lines.h"
#include "report/log.h"
#include "text/path_text.h"
#include "win32/handle.h"

namespace {

constexpr std::size_t kBuffer = 500;  // characters of a subkey's name or a value, terminator included
constexpr std::u16string_view kSoftware = u"SOFTWARE\\";

std::u16string ListKey(int isFile) {
  return isFile ? u"SOFTWARE\\Velmora\\Quillbay\\FileJunctions" : u"SOFTWARE\\Velmora\\Quillbay\\Junctions";
}

template <typename... Arguments>
void DebugOutput(FormatFor<Arguments...> format, const Arguments&... arguments) {
  TellDebugger(FormatText<Arguments...>(format, arguments...).c_str());
}

// The number that a name begins with, as C's conversion reads it, but without its limit: a number that stood still at
// 2,147,483,647 would be given out twice. 0 for a name that is no number.
std::uint64_t LeadingNumber(std::u16string_view name) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max() - 1;
  const auto isSpace = [](char16_t unit) { return unit == u' ' || (unit >= u'\t' && unit <= u'\r'); };
  while (!name.empty() && isSpace(name.front())) name.remove_prefix(1);
  if (name.starts_with(u'+')) name.remove_prefix(1);
  std::uint64_t number = 0;
  for (const char16_t unit : name) {
    if (unit < u'0' || unit > u'9') break;
    const std::uint64_t digit = unit - u'0';
    if (number > (kLargest - digit) / 10) return kLargest;
    number = number * 10 + digit;
  }
  return number;
}

// What the registry told: NotThere is an answer (no such key or value, or no text in it), Refused is none.
enum class Answer { Told, NotThere, Refused };

Answer AnswerOf(win32::LSTATUS result) {
  if (result == 0) return Answer::Told;
  return result == static_cast<win32::LSTATUS>(win32::ERROR_FILE_NOT_FOUND) ? Answer::NotThere : Answer::Refused;
}

bool CountRecords(const win32::UniqueKey& list, win32::DWORD& count) {
  return win32::RegQueryInfoKeyW(list.get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr) == 0;
}

// The names of a list's records in the registry's order.
struct RecordNames {
  std::vector<std::u16string> names;
  bool all = true;  // none was kept back
};

RecordNames ReadRecordNames(int isFile) {
  win32::UniqueKey list;
  const Answer opened = AnswerOf(win32::RegOpenKeyExW(
      win32::HKEY_LOCAL_MACHINE, ListKey(isFile).c_str(), 0,
      win32::KEY_QUERY_VALUE | win32::KEY_ENUMERATE_SUB_KEYS | win32::KEY_WOW64_32KEY, list.put()));
  if (opened != Answer::Told) return {{}, opened == Answer::NotThere};
  win32::DWORD count = 0;
  if (!CountRecords(list, count)) return {{}, false};
  RecordNames read;
  for (win32::DWORD index = 0; index < count; ++index) {
    std::array<char16_t, kBuffer> name{};
    win32::DWORD length = kBuffer;
    if (win32::RegEnumKeyExW(list.get(), index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) == 0)
      read.names.emplace_back(name.data(), std::min<std::size_t>(length, kBuffer - 1));
    else
      read.all = false;
  }
  return read;
}

std::u16string RecordKey(int isFile, const std::u16string& name) { return ListKey(isFile) + u"\\" + name; }

// A text value up to its terminator, if it has one; empty unless it is told.
Answer ReadText(const win32::UniqueKey& key, const std::u16string& subkey, const char16_t* name, std::u16string& out) {
  out.clear();
  win32::DWORD type = 0;
  win32::DWORD size = 0;
  const Answer sized = AnswerOf(win32::RegQueryValueExW(key.get(), name, nullptr, &type, nullptr, &size));
  if (sized != Answer::Told) {
    DebugOutput(u"#ERROR: ReadKeyValues: RegQueryValueEx() failed for path = %ls", name);
    return sized;
  }
  std::u16string text(size / sizeof(char16_t) + 1, u'\0');
  if (win32::RegQueryValueExW(key.get(), name, nullptr, &type, reinterpret_cast<win32::BYTE*>(text.data()), &size) != 0)
    return Answer::Refused;
  text.resize(std::min(text.find(u'\0'), size / sizeof(char16_t)));
  // Cut, a longer path would name some other folder.
  if ((type != win32::REG_SZ && type != win32::REG_EXPAND_SZ) || text.size() >= kBuffer) {
    DebugOutput(u"#ERROR: ReadKeyValues: no path in %ls of %ls", name, subkey);
    return Answer::NotThere;
  }
  out = text;
  return Answer::Told;
}

Answer ReadRecord(const std::u16string& subkey, std::u16string& source, std::u16string& target) {
  source.clear();
  target.clear();
  win32::UniqueKey key;
  const Answer opened = AnswerOf(win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, subkey.c_str(), 0,
                                                      win32::KEY_QUERY_VALUE | win32::KEY_WOW64_32KEY, key.put()));
  if (opened != Answer::Told) {
    DebugOutput(u"#ERROR: ReadKeyValues: RegOpenKeyEx() failed for path = %ls", subkey);
    return opened;
  }
  const Answer sourceAnswer = ReadText(key, subkey, u"Source", source);
  const Answer targetAnswer = ReadText(key, subkey, u"Target", target);
  return std::max(sourceAnswer, targetAnswer);
}

// The size leaves the terminator out, as the product's other components do it. Windows looks behind what it is given
// and stores the terminator that stands there all the same; so one must stand there, or what is stored would be chance.
bool WriteText(const win32::UniqueKey& key, const char16_t* name, const char16_t* terminated) {
  const std::size_t length = std::char_traits<char16_t>::length(terminated);
  return win32::RegSetValueExW(key.get(), name, 0, win32::REG_SZ, reinterpret_cast<const win32::BYTE*>(terminated),
                               static_cast<win32::DWORD>(length * sizeof(char16_t))) == 0;
}

bool RewriteValue(const std::u16string& subkey, const char16_t* name, const std::u16string& text) {
  // A text that no reader takes would lose the record; the old one can still be found.
  if (text.empty() || text.size() >= kBuffer) return false;
  win32::UniqueKey key;
  return win32::RegCreateKeyExW(win32::HKEY_LOCAL_MACHINE, subkey.c_str(), 0, nullptr, win32::REG_OPTION_NON_VOLATILE,
                                win32::KEY_SET_VALUE | win32::KEY_WOW64_32KEY, nullptr, key.put(), nullptr) == 0 &&
         WriteText(key, name, text.c_str());
}

// Has a record name newPath where it names oldPath or what lies below it.
void RewriteRecord(const JunctionRecord& record, std::u16string_view oldPath, std::u16string_view newPath) {
  const std::u16string source = ReplaceFolder(record.source, oldPath, newPath);
  const std::u16string target = ReplaceFolder(record.target, oldPath, newPath);
  if (source != record.source) RewriteValue(record.subkey, u"Source", source);
  if (target != record.target) RewriteValue(record.subkey, u"Target", target);
}

// RegDeleteKeyW knows no view: the 32-bit one is reached by its place in the 64-bit one.
bool DeleteRecordKey(const std::u16string& subkey) {
  std::u16string path = subkey;
  path.insert(kSoftware.size(), u"Wow6432Node\\");
  return win32::RegDeleteKeyW(win32::HKEY_LOCAL_MACHINE, path.c_str()) == 0;
}

// The two values of a new record. A record with one of them would be no use to anybody.
bool WriteRecord(const win32::UniqueKey& key, const char16_t* source, const char16_t* target) {
  if (!WriteText(key, u"Source", source ? source : u"")) {
    DebugOutput(u"ERROR: AddJunctionRegKey: RegSetValueEx() failed for value name 'Source':\n");
    return false;
  }
  if (!WriteText(key, u"Target", target ? target : u"")) {
    DebugOutput(u"ERROR: AddJunctionRegKey: RegSetValueEx() failed for value name 'Target':\n");
    return false;
  }
  return true;
}

}  // namespace

std::uint64_t GetNextJunctionIndex(int isFile) try {
  std::uint64_t largest = 0;
  for (const std::u16string& name : ReadRecordNames(isFile).names) largest = std::max(largest, LeadingNumber(name));
  return largest + 1;
} catch (const std::exception&) {
  return 1;
}

std::uint64_t NumberOf(const JunctionRecord& record) { return LeadingNumber(LastComponent(record.subkey)); }

bool MayHaveJunctionRecords(int isFile) {
  win32::UniqueKey list;
  const Answer opened = AnswerOf(win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, ListKey(isFile).c_str(), 0,
                                                      win32::KEY_QUERY_VALUE | win32::KEY_WOW64_32KEY, list.put()));
  win32::DWORD count = 0;
  return opened == Answer::Told ? !CountRecords(list, count) || count != 0 : opened == Answer::Refused;
}

// A list that is not there yet is made with its first record.
bool CanAddJunctionRegKey(int isFile) try {
  win32::UniqueKey list;
  return AnswerOf(win32::RegOpenKeyExW(win32::HKEY_LOCAL_MACHINE, ListKey(isFile).c_str(), 0,
                                       win32::KEY_READ | win32::KEY_WRITE | win32::KEY_WOW64_32KEY, list.put())) !=
         Answer::Refused;
} catch (const std::exception&) {
  return false;
}

int AddJunctionRegKey(const char16_t* source, const char16_t* target, int isFile) try {
  if (!source && !target) {
    Log(u"ERROR: Source or target path missing.");
    return 0;
  }
  if (JunctionRegKeyExists(source, target, isFile)) {
    Log(line::kRecordExists);
    return 0;
  }
  const std::u16string subkey = FormatText(u"%ls\\%u", ListKey(isFile), GetNextJunctionIndex(isFile));
  win32::UniqueKey key;
  win32::DWORD disposition = win32::REG_CREATED_NEW_KEY;
  // A key that has come to exist meanwhile is somebody else's record.
  if (win32::RegCreateKeyExW(win32::HKEY_LOCAL_MACHINE, subkey.c_str(), 0, nullptr, win32::REG_OPTION_NON_VOLATILE,
                             win32::KEY_READ | win32::KEY_WRITE | win32::KEY_WOW64_32KEY, nullptr, key.put(),
                             &disposition) != 0 ||
      disposition != win32::REG_CREATED_NEW_KEY) {
    DebugOutput(u"#ERROR: AddJunctionRegKey: RegCreateKeyEx() failed for path = %ls", subkey);
    return 0;
  }
  if (WriteRecord(key, source, target)) return 1;
  key.reset();
  DeleteRecordKey(subkey);
  return 0;
} catch (const std::exception&) {
  return 0;
}

int ReadKeyValues(const std::u16string& subkey, std::u16string& source, std::u16string& target) try {
  return ReadRecord(subkey, source, target) == Answer::Told ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

std::u16string FindJunctionRegKey(const char16_t* source, const char16_t* target, int isFile) try {
  if (!source || !target) return {};
  for (const std::u16string& name : ReadRecordNames(isFile).names) {
    const std::u16string subkey = RecordKey(isFile, name);
    std::u16string recordSource, recordTarget;
    if (ReadKeyValues(subkey, recordSource, recordTarget) && EqualPaths(recordSource, source) &&
        EqualPaths(recordTarget, target))
      return subkey;
  }
  return {};
} catch (const std::exception&) {
  return {};
}

int JunctionRegKeyExists(const char16_t* source, const char16_t* target, int isFile) {
  return FindJunctionRegKey(source, target, isFile).empty() ? 0 : 1;
}

int DeleteRegKey(const char16_t* source, const char16_t* target, int isFile) try {
  const std::u16string subkey = FindJunctionRegKey(source, target, isFile);
  if (subkey.empty()) {
    Log(u"#ERROR: Key with the source = %ls and target = %ls not found.", source, target);
    return 0;
  }
  if (DeleteRecordKey(subkey)) return 1;
  DebugOutput(u"#ERROR: DeleteRegKey: RegDeleteKey() failed for path = %ls", subkey);
  return 0;
} catch (const std::exception&) {
  return 0;
}

bool ReadWholeAndHalfRecords(int isFile, std::vector<JunctionRecord>& records) try {
  records.clear();
  const RecordNames list = ReadRecordNames(isFile);
  bool all = list.all;
  for (const std::u16string& name : list.names) {
    JunctionRecord record{RecordKey(isFile, name), {}, {}};
    if (ReadRecord(record.subkey, record.source, record.target) == Answer::Refused)
      all = false;
    else
      records.push_back(std::move(record));
  }
  return all;
} catch (const std::exception&) {
  return false;
}

bool ReadJunctionRecords(int isFile, std::vector<JunctionRecord>& records) {
  const bool all = ReadWholeAndHalfRecords(isFile, records);
  std::erase_if(records, [](const JunctionRecord& record) { return record.source.empty() || record.target.empty(); });
  return all;
}

std::vector<JunctionRecord> SaveJunctionRecords(int isFile) {
  std::vector<JunctionRecord> records;
  ReadJunctionRecords(isFile, records);
  return records;
}

bool RestoreJunctionRecords(const std::vector<JunctionRecord>& saved) try {
  bool all = true;
  for (const JunctionRecord& record : saved) {
    std::u16string source, target;
    const Answer answer = ReadRecord(record.subkey, source, target);
    if (answer == Answer::NotThere) {
      all = false;
      continue;
    }
    // What is kept back is written, too: it may hold the new path.
    const bool told = answer == Answer::Told;
    if (!(told && source == record.source) && !RewriteValue(record.subkey, u"Source", record.source)) all = false;
    if (!(told && target == record.target) && !RewriteValue(record.subkey, u"Target", record.target)) all = false;
  }
  return all;
} catch (const std::exception&) {
  return false;
}

void GetJunctionRecords(int isFile, std::map<std::u16string, std::u16string>& records) try {
  for (const JunctionRecord& record : SaveJunctionRecords(isFile)) records[record.source] = record.target;
} catch (const std::exception&) {
  // The map keeps what could be read.
}

int UpdateJunctionRegKeys(const char16_t* oldPath, const char16_t* newPath, int isFile) try {
  if (!oldPath || !newPath) return 0;
  for (const JunctionRecord& record : SaveJunctionRecords(isFile)) RewriteRecord(record, oldPath, newPath);
  return 1;
} catch (const std::exception&) {
  return 0;
}

int ListJunctions(int isFile) try {
  std::map<std::u16string, std::u16string> records;
  GetJunctionRecords(isFile, records);
  if (records.empty()) return 1;
  ConsolePrint(u"Source   Target\n\n");
  for (const auto& [source, target] : records) ConsoleFormat(u"%ls   %ls\n", source, target);
  return 1;
} catch (const std::exception&) {
  return 0;
}

bool UpdateOtherJunctionRecords(const std::u16string& oldPath, const std::u16string& newPath, int isFile,
                                const JunctionRecord& own) try {
  const auto isOther = [&](const JunctionRecord& record) {
    return !EqualPaths(record.source, own.source) || !EqualPaths(record.target, own.target);
  };
  std::vector<JunctionRecord> records;
  bool all = ReadJunctionRecords(isFile, records);
  for (const JunctionRecord& record : records)
    if (isOther(record)) RewriteRecord(record, oldPath, newPath);
  if (!ReadJunctionRecords(isFile, records)) all = false;
  return all && std::ranges::none_of(records, [&](const JunctionRecord& record) {
           return isOther(record) && (IsSameOrBelow(record.source, oldPath) || IsSameOrBelow(record.target, oldPath));
         });
} catch (const std::exception&) {
  return false;
}

bool UpdateRecords(const std::u16string& oldPath, const std::u16string& newPath, std::vector<JunctionRecord>& records) {
  bool all = UpdateJunctionRegKeys(oldPath.c_str(), newPath.c_str(), 0) != 0;
  if (!ReadJunctionRecords(0, records)) all = false;
  for (const JunctionRecord& record : records) {
    if (!IsSameOrBelow(record.source, oldPath) && !IsSameOrBelow(record.target, oldPath)) continue;
    Log(u"#INFO: The record of Source = %ls and Target = %ls names a folder that is now in %ls.", record.source,
        record.target, newPath);
    all = false;
  }
  if (!all) Log(line::kRecordsNotUpdated);
  return all;
}
