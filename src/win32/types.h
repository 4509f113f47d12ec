// The types of the Windows interface, under Windows' own names.
//
// The program counts every path, name and log line in UTF-16 units, so text is char16_t here and
// in both worlds; the native backend casts to wchar_t at its border and proves there, at compile
// time, that every structure below is laid out as Windows lays it out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace win32 {

// Where `long` has 32 bits (Windows) these are Windows' own types, so the native backend passes pointers on as they
// are.
using DWORD = std::conditional_t<sizeof(long) == 4, unsigned long, std::uint32_t>;
using LONG = std::conditional_t<sizeof(long) == 4, long, std::int32_t>;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using BOOL = int;
using BOOLEAN = std::uint8_t;
using UINT = unsigned int;
using ULONG = DWORD;
using ULONGLONG = unsigned long long;
using LONGLONG = long long;
using ULONG_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using SIZE_T = std::size_t;
using HRESULT = LONG;
using LSTATUS = LONG;
using ACCESS_MASK = DWORD;

using HANDLE = void*;
using HMODULE = void*;
using HRSRC = void*;
using HGLOBAL = void*;
using HWND = void*;
using HKEY = void*;
using SC_HANDLE = void*;
using PSID = void*;
using PSECURITY_DESCRIPTOR = void*;
using HLOCAL = void*;
using FARPROC = void (*)();

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));

inline const HKEY HKEY_CLASSES_ROOT =
    reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG_PTR>(static_cast<std::int32_t>(0x80000000))));
inline const HKEY HKEY_CURRENT_USER =
    reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG_PTR>(static_cast<std::int32_t>(0x80000001))));
inline const HKEY HKEY_LOCAL_MACHINE =
    reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG_PTR>(static_cast<std::int32_t>(0x80000002))));
inline const HKEY HKEY_USERS =
    reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG_PTR>(static_cast<std::int32_t>(0x80000003))));

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct SYSTEMTIME {
  WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};

union LARGE_INTEGER {
  LONGLONG QuadPart;
};

union ULARGE_INTEGER {
  ULONGLONG QuadPart;
};

struct GUID {
  DWORD Data1;
  WORD Data2;
  WORD Data3;
  BYTE Data4[8];
};

struct LUID {
  DWORD LowPart;
  LONG HighPart;
};

struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  void* lpSecurityDescriptor;
  BOOL bInheritHandle;
};

struct OVERLAPPED;

struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;  // the reparse tag, when dwFileAttributes has FILE_ATTRIBUTE_REPARSE_POINT
  DWORD dwReserved1;
  char16_t cFileName[260];
  char16_t cAlternateFileName[14];
};

struct WIN32_FILE_ATTRIBUTE_DATA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
};

struct BY_HANDLE_FILE_INFORMATION {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD dwVolumeSerialNumber;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD nNumberOfLinks;
  DWORD nFileIndexHigh;
  DWORD nFileIndexLow;
};

// What is opened goes when its last handle is closed, or stays after all. Windows' name for the member is DeleteFile,
// which its own macro rewrites.
struct FILE_DISPOSITION_INFO {
  BOOLEAN DeleteIt;
};

// The header of each stream in a backup of a file; the name (dwStreamNameSize bytes) follows at offset 20.
struct WIN32_STREAM_ID {
  DWORD dwStreamId;
  DWORD dwStreamAttributes;
  LARGE_INTEGER Size;
  DWORD dwStreamNameSize;
  char16_t cStreamName[1];
};

struct SID_IDENTIFIER_AUTHORITY {
  BYTE Value[6];
};

struct SID {
  BYTE Revision;
  BYTE SubAuthorityCount;
  SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
  DWORD SubAuthority[1];
};

struct SID_AND_ATTRIBUTES {
  PSID Sid;
  DWORD Attributes;
};

struct TOKEN_GROUPS {
  DWORD GroupCount;
  SID_AND_ATTRIBUTES Groups[1];
};

// What kind of account a name or SID belongs to.
enum class SID_NAME_USE : int { SidTypeUser = 1, SidTypeGroup = 2, SidTypeDomain = 3, SidTypeAlias = 4 };

struct TOKEN_USER {
  SID_AND_ATTRIBUTES User;
};

struct LUID_AND_ATTRIBUTES {
  LUID Luid;
  DWORD Attributes;
};

struct TOKEN_PRIVILEGES {
  DWORD PrivilegeCount;
  LUID_AND_ATTRIBUTES Privileges[1];
};

struct PRIVILEGE_SET {
  DWORD PrivilegeCount;
  DWORD Control;
  LUID_AND_ATTRIBUTES Privilege[1];
};

struct GENERIC_MAPPING {
  ACCESS_MASK GenericRead;
  ACCESS_MASK GenericWrite;
  ACCESS_MASK GenericExecute;
  ACCESS_MASK GenericAll;
};

struct ACL {
  BYTE AclRevision;
  BYTE Sbz1;
  WORD AclSize;
  WORD AceCount;
  WORD Sbz2;
};

struct ACE_HEADER {
  BYTE AceType;
  BYTE AceFlags;
  WORD AceSize;
};

struct ACCESS_ALLOWED_ACE {
  ACE_HEADER Header;
  ACCESS_MASK Mask;
  DWORD SidStart;
};

// The absolute form of a security descriptor.
struct SECURITY_DESCRIPTOR {
  BYTE Revision;
  BYTE Sbz1;
  WORD Control;
  PSID Owner;
  PSID Group;
  ACL* Sacl;
  ACL* Dacl;
};

enum class MULTIPLE_TRUSTEE_OPERATION : int { NO_MULTIPLE_TRUSTEE = 0 };
enum class TRUSTEE_FORM : int { TRUSTEE_IS_SID = 0, TRUSTEE_IS_NAME = 1 };
enum class TRUSTEE_TYPE : int {
  TRUSTEE_IS_UNKNOWN = 0,
  TRUSTEE_IS_USER = 1,
  TRUSTEE_IS_GROUP = 2,
  TRUSTEE_IS_WELL_KNOWN_GROUP = 5
};
enum class ACCESS_MODE : int {
  NOT_USED_ACCESS = 0,
  GRANT_ACCESS = 1,
  SET_ACCESS = 2,
  DENY_ACCESS = 3,
  REVOKE_ACCESS = 4
};
enum class SE_OBJECT_TYPE : int { SE_FILE_OBJECT = 1, SE_REGISTRY_KEY = 4 };
enum class TOKEN_INFORMATION_CLASS : int { TokenUser = 1, TokenGroups = 2, TokenPrivileges = 3 };
enum class SECURITY_IMPERSONATION_LEVEL : int {
  SecurityAnonymous = 0,
  SecurityIdentification = 1,
  SecurityImpersonation = 2,
  SecurityDelegation = 3
};

struct TRUSTEE_W {
  TRUSTEE_W* pMultipleTrustee;
  MULTIPLE_TRUSTEE_OPERATION MultipleTrusteeOperation;
  TRUSTEE_FORM TrusteeForm;
  TRUSTEE_TYPE TrusteeType;
  char16_t* ptstrName;  // a SID when TrusteeForm is TRUSTEE_IS_SID
};

struct EXPLICIT_ACCESS_W {
  DWORD grfAccessPermissions;
  ACCESS_MODE grfAccessMode;
  DWORD grfInheritance;
  TRUSTEE_W Trustee;
};

struct SERVICE_STATUS {
  DWORD dwServiceType;
  DWORD dwCurrentState;
  DWORD dwControlsAccepted;
  DWORD dwWin32ExitCode;
  DWORD dwServiceSpecificExitCode;
  DWORD dwCheckPoint;
  DWORD dwWaitHint;
};

struct QUERY_SERVICE_CONFIGW {
  DWORD dwServiceType;
  DWORD dwStartType;
  DWORD dwErrorControl;
  char16_t* lpBinaryPathName;
  char16_t* lpLoadOrderGroup;
  DWORD dwTagId;
  char16_t* lpDependencies;
  char16_t* lpServiceStartName;
  char16_t* lpDisplayName;
};

struct OSVERSIONINFOEXW {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  char16_t szCSDVersion[128];
  // The members of the plain OSVERSIONINFOW (276 bytes) end here.
  WORD wServicePackMajor;
  WORD wServicePackMinor;
  WORD wSuiteMask;
  BYTE wProductType;
  BYTE wReserved;
};

struct VS_FIXEDFILEINFO {
  DWORD dwSignature;
  DWORD dwStrucVersion;
  DWORD dwFileVersionMS;
  DWORD dwFileVersionLS;
  DWORD dwProductVersionMS;
  DWORD dwProductVersionLS;
  DWORD dwFileFlagsMask;
  DWORD dwFileFlags;
  DWORD dwFileOS;
  DWORD dwFileType;
  DWORD dwFileSubtype;
  DWORD dwFileDateMS;
  DWORD dwFileDateLS;
};

// Large enough for Windows' own on x64 (40 bytes); its inside is nobody's business here.
struct alignas(8) CRITICAL_SECTION {
  BYTE opaque[40];
};

struct SHFILEOPSTRUCTW {
  HWND hwnd;
  UINT wFunc;
  const char16_t* pFrom;  // ends with two zeros
  const char16_t* pTo;    // ends with two zeros
  WORD fFlags;
  BOOL fAnyOperationsAborted;
  void* hNameMappings;
  const char16_t* lpszProgressTitle;
};

struct SHARE_INFO_502 {
  char16_t* shi502_netname;
  DWORD shi502_type;
  char16_t* shi502_remark;
  DWORD shi502_permissions;
  DWORD shi502_max_uses;
  DWORD shi502_current_uses;
  char16_t* shi502_path;
  char16_t* shi502_passwd;
  DWORD shi502_reserved;
  PSECURITY_DESCRIPTOR shi502_security_descriptor;
};

}  // namespace win32
