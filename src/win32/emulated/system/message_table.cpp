#include "win32/emulated/system/message_table.h"

#include <algorithm>
#include <iterator>

namespace emulated {

namespace {

struct Message {
  win32::DWORD id;
  std::u16string_view text;
};

// By number.
constexpr Message kSystem[] = {
    {0, u"The operation completed successfully.\r\n"},
    {1, u"Incorrect function.\r\n"},
    {2, u"The system cannot find the file specified.\r\n"},
    {3, u"The system cannot find the path specified.\r\n"},
    {4, u"The system cannot open the file.\r\n"},
    {5, u"Access is denied.\r\n"},
    {6, u"The handle is invalid.\r\n"},
    {8, u"Not enough memory resources are available to process this command.\r\n"},
    {13, u"The data is invalid.\r\n"},
    {14, u"Not enough memory resources are available to complete this operation.\r\n"},
    {15, u"The system cannot find the drive specified.\r\n"},
    {17, u"The system cannot move the file to a different disk drive.\r\n"},
    {18, u"There are no more files.\r\n"},
    {19, u"The media is write protected.\r\n"},
    {21, u"The device is not ready.\r\n"},
    {23, u"Data error (cyclic redundancy check).\r\n"},
    {24, u"The program issued a command but the command length is incorrect.\r\n"},
    {29, u"The system cannot write to the specified device.\r\n"},
    {31, u"A device attached to the system is not functioning.\r\n"},
    {32, u"The process cannot access the file because it is being used by another process.\r\n"},
    {33, u"The process cannot access the file because another process has locked a portion of the file.\r\n"},
    {38, u"Reached the end of the file.\r\n"},
    {50, u"The request is not supported.\r\n"},
    {53, u"The network path was not found.\r\n"},
    {67, u"The network name cannot be found.\r\n"},
    {80, u"The file exists.\r\n"},
    {87, u"The parameter is incorrect.\r\n"},
    {109, u"The pipe has been ended.\r\n"},
    {112, u"There is not enough space on the disk.\r\n"},
    {121, u"The semaphore timeout period has expired.\r\n"},
    {122, u"The data area passed to a system call is too small.\r\n"},
    {123, u"The filename, directory name, or volume label syntax is incorrect.\r\n"},
    {124, u"The system call level is not correct.\r\n"},
    {126, u"The specified module could not be found.\r\n"},
    {127, u"The specified procedure could not be found.\r\n"},
    {131, u"An attempt was made to move the file pointer before the beginning of the file.\r\n"},
    {144, u"The directory is not a subdirectory of the root directory.\r\n"},
    {145, u"The directory is not empty.\r\n"},
    {158, u"The segment is already unlocked.\r\n"},
    {161, u"The specified path is invalid.\r\n"},
    {170, u"The requested resource is in use.\r\n"},
    {183, u"Cannot create a file when that file already exists.\r\n"},
    {206, u"The filename or extension is too long.\r\n"},
    {230, u"The pipe state is invalid.\r\n"},
    {231, u"All pipe instances are busy.\r\n"},
    {232, u"The pipe is being closed.\r\n"},
    {233, u"No process is on the other end of the pipe.\r\n"},
    {234, u"More data is available.\r\n"},
    {254, u"The specified extended attribute name was invalid.\r\n"},
    {255, u"The extended attributes are inconsistent.\r\n"},
    {258, u"The wait operation timed out.\r\n"},
    {259, u"No more data is available.\r\n"},
    {267, u"The directory name is invalid.\r\n"},
    {282, u"The mounted file system does not support extended attributes.\r\n"},
    {303, u"The file cannot be opened because it is in the process of being deleted.\r\n"},
    {317, u"The system cannot find message text for message number 0x%1 in the message file for %2.\r\n"},
    {487, u"Attempt to access invalid address.\r\n"},
    {995, u"The I/O operation has been aborted because of either a thread exit or an application request.\r\n"},
    {997, u"Overlapped I/O operation is in progress.\r\n"},
    {998, u"Invalid access to memory location.\r\n"},
    {1004, u"Invalid flags.\r\n"},
    {1005,
     u"The volume does not contain a recognized file system.\r\nPlease make sure that all required file system drivers "
     u"are loaded and that the volume is not corrupted.\r\n"},
    {1008, u"An attempt was made to reference a token that does not exist.\r\n"},
    {1010, u"The configuration registry key is invalid.\r\n"},
    {1018, u"Illegal operation attempted on a registry key that has been marked for deletion.\r\n"},
    {1020, u"Cannot create a symbolic link in a registry key that already has subkeys or values.\r\n"},
    {1021, u"Cannot create a stable subkey under a volatile parent key.\r\n"},
    {1052, u"The requested control is not valid for this service.\r\n"},
    {1053, u"The service did not respond to the start or control request in a timely fashion.\r\n"},
    {1056, u"An instance of the service is already running.\r\n"},
    {1058,
     u"The service cannot be started, either because it is disabled or because it has no enabled devices associated "
     u"with it.\r\n"},
    {1060, u"The specified service does not exist as an installed service.\r\n"},
    {1061, u"The service cannot accept control messages at this time.\r\n"},
    {1062, u"The service has not been started.\r\n"},
    {1065, u"The database specified does not exist.\r\n"},
    {1072, u"The specified service has been marked for deletion.\r\n"},
    {1073, u"The specified service already exists.\r\n"},
    {1113, u"No mapping for the Unicode character exists in the target multi-byte code page.\r\n"},
    {1117, u"The request could not be performed because of an I/O device error.\r\n"},
    {1142, u"An attempt was made to create more links on a file than the file system supports.\r\n"},
    {1168, u"Element not found.\r\n"},
    {1223, u"The operation was canceled by the user.\r\n"},
    {1235, u"The request was aborted.\r\n"},
    {1224, u"The requested operation cannot be performed on a file with a user-mapped section open.\r\n"},
    {1300, u"Not all privileges or groups referenced are assigned to the caller.\r\n"},
    {1305, u"The revision level is unknown.\r\n"},
    {1307, u"This security ID may not be assigned as the owner of this object.\r\n"},
    {1308, u"This security ID may not be assigned as the primary group of an object.\r\n"},
    {1309,
     u"An attempt has been made to operate on an impersonation token by a thread that is not currently impersonating a "
     u"client.\r\n"},
    {1313, u"A specified privilege does not exist.\r\n"},
    {1314, u"A required privilege is not held by the client.\r\n"},
    {1332, u"No mapping between account names and security IDs was done.\r\n"},
    {1336, u"The access control list (ACL) structure is invalid.\r\n"},
    {1337, u"The security ID structure is invalid.\r\n"},
    {1338, u"The security descriptor structure is invalid.\r\n"},
    {1340, u"The inherited access control list (ACL) or access control entry (ACE) could not be built.\r\n"},
    {1346,
     u"Either a required impersonation level was not provided, or the provided impersonation level is invalid.\r\n"},
    {1360,
     u"Generic access types were contained in an access mask which should already be mapped to nongeneric types.\r\n"},
    {1392, u"The file or directory is corrupted and unreadable.\r\n"},
    {1450, u"Insufficient system resources exist to complete the requested service.\r\n"},
    {1460, u"This operation returned because the timeout period expired.\r\n"},
    {1784, u"The supplied user buffer is not valid for the requested operation.\r\n"},
    {1812, u"The specified image file did not contain a resource section.\r\n"},
    {1813, u"The specified resource type cannot be found in the image file.\r\n"},
    {1814, u"The specified resource name cannot be found in the image file.\r\n"},
    {1815, u"The specified resource language ID cannot be found in the image file.\r\n"},
    {1920, u"The file cannot be accessed by the system.\r\n"},
    {1921, u"The name of the file cannot be resolved by the system.\r\n"},
    {4390, u"The file or directory is not a reparse point.\r\n"},
    {4391, u"The reparse point attribute cannot be set because it conflicts with an existing attribute.\r\n"},
    {4392, u"The data present in the reparse point buffer is invalid.\r\n"},
    {4393, u"The tag present in the reparse point buffer is invalid.\r\n"},
    {4394,
     u"There is a mismatch between the tag specified in the request and the tag present in the reparse point.\r\n"},
};

constexpr Message kNetwork[] = {
    {2102, u"The workstation driver is not installed.\r\n"},
    {2114, u"The Server service is not started.\r\n"},
    {2116, u"The device or directory does not exist.\r\n"},
    {2117, u"The operation is invalid on a redirected resource.\r\n"},
    {2118, u"The name has already been shared.\r\n"},
    {2123, u"The API return buffer is too small.\r\n"},
    {2138, u"The Workstation service has not been started.\r\n"},
    {2310, u"This shared resource does not exist.\r\n"},
    {2311, u"This device is not shared.\r\n"},
};

template <std::size_t N>
std::u16string_view Find(const Message (&table)[N], win32::DWORD id) {
  const auto* const found =
      std::lower_bound(std::begin(table), std::end(table), id,
                       [](const Message& message, win32::DWORD wanted) { return message.id < wanted; });
  return found != std::end(table) && found->id == id ? found->text : std::u16string_view();
}

}  // namespace

std::u16string_view SystemMessage(win32::DWORD id) { return Find(kSystem, id); }
std::u16string_view NetworkMessage(win32::DWORD id) { return Find(kNetwork, id); }

}  // namespace emulated
