// Other processes' handles, threads, virtual memory, structured exceptions, and ntdll's queries.
#include <algorithm>
#include <stdexcept>

#include "contract/fixture.h"

namespace {

using namespace contract;
using namespace win32;

// A function of ntdll, of whatever type it is asked for.
struct Entry {
  const char* name;
  template <typename Function>
  operator Function() const {
    const auto found = GetProcAddress(GetModuleHandleW(u"ntdll.dll"), name);
    Function function = nullptr;
    std::memcpy(&function, &found, sizeof function);
    return function;
  }
};

// Room for a query's answer, aligned as records need it.
struct Buffer {
  explicit Buffer(std::size_t bytes) : words((bytes + 7) / 8), size(static_cast<ULONG>(bytes)) {}
  template <typename T>
  T& As(std::size_t offset = 0) {
    return *reinterpret_cast<T*>(reinterpret_cast<std::uint8_t*>(words.data()) + offset);
  }
  void* data() { return words.data(); }
  std::vector<std::uint64_t> words;
  ULONG size;
};

std::u16string Text(const UNICODE_STRING& string) {
  return string.Buffer ? std::u16string(string.Buffer, string.Length / 2) : std::u16string();
}

const HANDLE kNothing = reinterpret_cast<HANDLE>(ULONG_PTR{0xF000});

class Processes : public FileTest {
 protected:
  const NtQuerySystemInformationFunction querySystem = Entry{"NtQuerySystemInformation"};
  const NtQueryObjectFunction queryObject = Entry{"NtQueryObject"};
  const NtQueryInformationFileFunction queryFile = Entry{"NtQueryInformationFile"};

  // The whole answer of a query of the system, which may grow between two calls.
  Buffer Ask(int informationClass) {
    ULONG needed = 64;
    for (;;) {
      Buffer buffer(needed);
      needed = 0;
      const NTSTATUS status = querySystem(informationClass, buffer.data(), buffer.size, &needed);
      if (status == STATUS_SUCCESS) return buffer;
      EXPECT_EQ(status, STATUS_INFO_LENGTH_MISMATCH);
      EXPECT_GT(needed, buffer.size);
      if (needed <= buffer.size) return buffer;
      needed += 256;
    }
  }

  std::u16string ObjectText(HANDLE handle, int informationClass) {
    Buffer buffer(2048);
    EXPECT_EQ(queryObject(handle, informationClass, buffer.data(), buffer.size, nullptr), STATUS_SUCCESS);
    return Text(buffer.As<UNICODE_STRING>());
  }
};

TEST_F(Processes, TheHandleTableListsOurOpenFiles) {
  Put(Path(u"file"));
  const auto file = Open(Path(u"file"), GENERIC_READ, kShareAll);
  const UniqueKernelHandle mutex{CreateMutexW(nullptr, FALSE, nullptr)};
  Buffer table = Ask(SystemHandleInformationClass);
  auto& header = table.As<SYSTEM_HANDLE_INFORMATION>();
  ASSERT_LE(8 + header.NumberOfHandles * sizeof(SYSTEM_HANDLE_TABLE_ENTRY_INFO), table.size);
  const auto ours = [&](HANDLE handle) {
    const auto id = static_cast<WORD>(GetCurrentProcessId());
    return std::find_if(header.Handles, header.Handles + header.NumberOfHandles, [&](const auto& record) {
      return record.UniqueProcessId == id && record.HandleValue == reinterpret_cast<ULONG_PTR>(handle);
    });
  };
  const auto *const ofFile = ours(file.get()), *const ofMutex = ours(mutex.get());
  ASSERT_TRUE(std::max(ofFile, ofMutex) != header.Handles + header.NumberOfHandles);
  EXPECT_NE(ofFile->GrantedAccess & FILE_READ_DATA, 0u);
  RecordProperty("TypeNumberOfFiles", ofFile->ObjectTypeIndex);
  // Wine leaves the types' numbers out, and the objects' addresses, as Windows 11 does for who is no debugger.
  EXPECT_TRUE(OnWine() || ofFile->ObjectTypeIndex != ofMutex->ObjectTypeIndex);
  EXPECT_TRUE(!ofFile->Object || ofFile->Object != ofMutex->Object);
}

TEST_F(Processes, TheListsOfProcessesHaveOursAndWhoseItIs) {
  Buffer list = Ask(SystemProcessInformationClass);
  const auto* const begin = reinterpret_cast<std::uint8_t*>(list.data());
  bool isFound = false;
  for (std::size_t offset = 0, next = 1; next != 0; offset += next) {
    ASSERT_LE(offset + sizeof(SYSTEM_PROCESS_INFORMATION), list.size);
    const auto& record = list.As<SYSTEM_PROCESS_INFORMATION>(offset);
    const auto* const name = reinterpret_cast<const std::uint8_t*>(record.ImageName.Buffer);
    EXPECT_TRUE(!name || (name > begin && name + record.ImageName.Length <= begin + list.size));
    std::uint32_t padding = 1;  // which the program looks at
    std::memcpy(&padding, begin + offset + 76, sizeof padding);
    EXPECT_TRUE(OnWine() || padding == 0);
    next = record.NextEntryOffset;
    EXPECT_TRUE(next == 0 || next >= sizeof record + record.NumberOfThreads * 80);
    if (record.UniqueProcessId != reinterpret_cast<HANDLE>(ULONG_PTR{GetCurrentProcessId()})) continue;
    isFound = Text(record.ImageName).ends_with(u".exe") && record.NumberOfThreads != 0;
  }
  EXPECT_TRUE(isFound);

  WTS_PROCESS_INFOW* processes = nullptr;
  DWORD count = 0;
  // Success is said in the last error, too.
  SetLastError(0xDEAD);
  ASSERT_TRUE(WTSEnumerateProcessesW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &processes, &count));
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  const auto* const own = std::find_if(processes, processes + count,
                                       [](const auto& record) { return record.ProcessId == GetCurrentProcessId(); });
  ASSERT_NE(own, processes + count);
  UniqueKernelHandle token;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()));
  Buffer user(256);
  DWORD size = 0;
  ASSERT_TRUE(GetTokenInformation(token.get(), TOKEN_INFORMATION_CLASS::TokenUser, user.data(), user.size, &size));
  SetLastError(0xDEAD);
  EXPECT_TRUE(own->pUserSid && EqualSid(own->pUserSid, user.As<TOKEN_USER>().User.Sid));
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  WTSFreeMemory(processes);
  SetLastError(0xDEAD);
  const UniqueService manager{OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)};
  EXPECT_TRUE(manager && GetLastError() == ERROR_SUCCESS) << GetLastError();
}

TEST_F(Processes, AFilesNameIsToldWithItsDeviceOrWithoutAndInPartWithoutRoom) {
  Put(Path(u"file"));
  const auto file = Open(Path(u"file"), GENERIC_READ, kShareAll);
  const UniqueKernelHandle named{CreateMutexW(nullptr, FALSE, u"contract test named")};
  const std::u16string inVolume = Path(u"file").substr(2);
  char16_t device[300] = {};
  ASSERT_NE(QueryDosDeviceW(Path(u"").substr(0, 2).c_str(), device, 300), 0u);
  EXPECT_TRUE(ObjectText(file.get(), ObjectTypeInformation) == u"File");
  EXPECT_TRUE(ObjectText(file.get(), ObjectNameInformation) == device + inVolume);
  Buffer buffer(4096);
  IO_STATUS_BLOCK status{};
  const auto& answer = buffer.As<FILE_NAME_INFORMATION>();
  ASSERT_EQ(queryFile(file.get(), &status, buffer.data(), buffer.size, FileNameInformation), STATUS_SUCCESS);
  EXPECT_TRUE(std::u16string(answer.FileName, answer.FileNameLength / 2) == inVolume);
  EXPECT_EQ(queryFile(file.get(), &status, buffer.data(), 10, FileNameInformation), STATUS_BUFFER_OVERFLOW);
  EXPECT_EQ(answer.FileNameLength, inVolume.size() * 2);

  const auto full = static_cast<ULONG>(16 + (std::u16string(device).size() + inVolume.size() + 1) * 2);
  for (const auto& [handle, size, error] : {std::tuple(file.get(), 0u, STATUS_INFO_LENGTH_MISMATCH),
                                            {file.get(), 16u, STATUS_BUFFER_OVERFLOW},
                                            {named.get(), 16u, STATUS_INFO_LENGTH_MISMATCH}}) {
    ULONG needed = 0;
    EXPECT_EQ(queryObject(handle, ObjectNameInformation, buffer.data(), size, &needed), error);
    EXPECT_TRUE(handle == file.get() ? needed == full : needed > 16);
  }
}

TEST_F(Processes, QueriesRefuseWhatTheyAreNotForAndNamelessThingsHaveNoName) {
  const UniqueKernelHandle mutex{CreateMutexW(nullptr, FALSE, nullptr)};
  Buffer buffer(256);
  IO_STATUS_BLOCK status{};
  ASSERT_EQ(queryObject(mutex.get(), ObjectNameInformation, buffer.data(), buffer.size, nullptr), STATUS_SUCCESS);
  EXPECT_TRUE(buffer.As<UNICODE_STRING>().Length == 0 && buffer.As<UNICODE_STRING>().Buffer == nullptr);
  EXPECT_TRUE(ObjectText(mutex.get(), ObjectTypeInformation) == u"Mutant");
  EXPECT_EQ(queryObject(kNothing, ObjectNameInformation, buffer.data(), buffer.size, nullptr),
            static_cast<NTSTATUS>(0xC0000008));  // STATUS_INVALID_HANDLE
  EXPECT_EQ(queryFile(mutex.get(), &status, buffer.data(), buffer.size, FileNameInformation),
            static_cast<NTSTATUS>(0xC0000024));  // STATUS_OBJECT_TYPE_MISMATCH
  EXPECT_FALSE(NT_SUCCESS(querySystem(9999, nullptr, 0, nullptr)));
}

TEST_F(Processes, ADuplicateIsTheSameOpenFile) {
  Put(Path(u"file"), "0123456789");
  auto file = Open(Path(u"file"), GENERIC_READ, 0);
  const UniqueKernelHandle process{OpenProcess(PROCESS_DUP_HANDLE, FALSE, GetCurrentProcessId())};
  for (const DWORD unknown : {0u, 0x7FFFFFF0u})
    EXPECT_EQ(ErrorOf(OpenProcess(PROCESS_DUP_HANDLE, FALSE, unknown)), ERROR_INVALID_PARAMETER);
  UniqueFile copy, none;
  const auto duplicate = [&](HANDLE handle, UniqueFile& to) {
    return ErrorOf(
        DuplicateHandle(process.get(), handle, GetCurrentProcess(), to.put(), 0, FALSE, DUPLICATE_SAME_ACCESS));
  };
  ASSERT_EQ(duplicate(file.get(), copy), 0u);
  EXPECT_EQ(SetFilePointer(file.get(), 3, nullptr, FILE_BEGIN), 3u);
  EXPECT_EQ(SetFilePointer(copy.get(), 0, nullptr, FILE_CURRENT), 3u);  // the position is shared
  file.reset();
  EXPECT_EQ(OpenError(Path(u"file"), GENERIC_READ), ERROR_SHARING_VIOLATION);
  copy.reset();
  EXPECT_EQ(OpenError(Path(u"file"), GENERIC_READ), 0u);
  EXPECT_EQ(duplicate(kNothing, none), ERROR_INVALID_HANDLE);
}

// What the filter was asked about.
DWORD askedAbout = 0;
LONG Handle(DWORD code) {
  askedAbout = code;
  return EXCEPTION_EXECUTE_HANDLER;
}

TEST_F(Processes, ACallWithoutExceptionIsLeftAlone) {
  int value = 0;
  askedAbout = 0;
  EXPECT_TRUE(CallWithExceptionFilter([](void* context) { *static_cast<int*>(context) = 5; }, &value, Handle));
  EXPECT_EQ(value, 5);
  // C++ exceptions are the program's own affair.
  EXPECT_THROW(CallWithExceptionFilter([](void*) { throw std::runtime_error("x"); }, nullptr, Handle),
               std::runtime_error);
  EXPECT_EQ(askedAbout, 0u);
}

#ifdef _WIN32

LONG PassOn(DWORD code) {
  askedAbout = code;
  return EXCEPTION_CONTINUE_SEARCH;
}

void Fault(void* /*context*/) {
  const volatile std::uintptr_t address = 0x10;  // nothing is ever there, which the compiler need not know
  *reinterpret_cast<volatile int*>(address) = 1;
}
// The fault lies some frames below, in one that has been given nonvolatile registers to use.
[[gnu::noinline]] int Deep(volatile int* numbers, int depth) {
  if (depth == 0) Fault(nullptr);
  return depth == 0 ? 0 : numbers[depth] + Deep(numbers, depth - 1) * numbers[depth - 1];
}

TEST_F(Processes, AnAccessViolationGoesToTheFilter) {
  // Kept in nonvolatile registers over the call, if the compiler has its way.
  volatile int seed = 3;
  const int a = seed, b = seed * 2, c = seed * 3, d = seed * 4, e = seed * 5;
  const double x = seed * 0.5, y = seed * 0.25;
  for (int round = 0; round < 3; ++round) {
    askedAbout = 0;
    volatile int numbers[20] = {};
    const auto deep = [](void* given) { Deep(static_cast<volatile int*>(given), 19); };
    EXPECT_FALSE(CallWithExceptionFilter(deep, const_cast<int*>(numbers), Handle));
    EXPECT_EQ(askedAbout, EXCEPTION_ACCESS_VIOLATION);
    // What a filter passes on goes to the next one.
    EXPECT_FALSE(CallWithExceptionFilter(
        [](void*) {
          CallWithExceptionFilter(Fault, nullptr, PassOn);
          ADD_FAILURE() << "went on behind the fault";
        },
        nullptr, Handle));
    EXPECT_EQ(a + b + c + d + e, 45);
    EXPECT_EQ(x + y, 2.25);
  }
}

#endif

}  // namespace
