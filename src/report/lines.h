// The lines of the log that several commands or rules write, each under one name.
#pragma once

namespace line {

// Refusals of a path.
inline constexpr char16_t kPathTooLong[] =
    u"#ERROR: The specified path %ls exceeds the system-defined maximum length of 248 characters. Browse to a "
    u"different location.";
inline constexpr char16_t kInvalidPath[] = u"#ERROR:Invalid path : %ls";
inline constexpr char16_t kRelativePath[] =
    u"#ERROR: The selected folder %ls is a relative path. Browse to a different location";
inline constexpr char16_t kNotADirectory[] = u"#ERROR: The specified path %ls is not a valid directory path.";
inline constexpr char16_t kFolderRequired[] =
    u"#ERROR: %ls - A folder is required for folder redirection. Browse to a different location.";
inline constexpr char16_t kSystemFolder[] =
    u"#ERROR: %ls - Cannot redirect from or to Windows system folders. Browse to a different location.";
inline constexpr char16_t kRedirectedAlready[] =
    u"#ERROR: The folder %ls is already redirected. Browse to a different location.";
inline constexpr char16_t kSymbolicLink[] = u"#ERROR: The folder %ls is Symbolic Link. Browse to a different location.";
inline constexpr char16_t kParentIsSymbolicLink[] =
    u"#ERROR: The parent folder of %ls is Symbolic Link. Browse to a different location.";
inline constexpr char16_t kNotEmpty[] =
    u"#ERROR: The folder %ls already exists and is not empty. Rename it, and remove the redirection again.";
inline constexpr char16_t kInputPathMissing[] = u"#ERROR: Input path missing.";
inline constexpr char16_t kNoNormalPath[] = u"#ERROR: Volume Path to Normal Path Conversion Failed.";

// Refusals of a pair of source and target.
inline constexpr char16_t kPathMissing[] = u"#ERROR: Target or Source path is missing.";
inline constexpr char16_t kPathMissingForRemoval[] = u"#ERROR: Target or Source path Missing";
inline constexpr char16_t kSourceDoesNotExist[] = u"#ERROR: Source = %ls Path Does Not Exist.";
inline constexpr char16_t kSamePlace[] =
    u"Checking source folder equals to target.\nSource: %ls Target: %ls #ERROR: Cannot redirect when Source and "
    u"Target folder are the same. Browse to a different location.";
inline constexpr char16_t kInsideSource[] =
    u"Checking source folder contained in target.\nSource: %ls Target: %ls #ERROR: Cannot redirect within the same "
    u"Source folder. Browse to a different location.";
inline constexpr char16_t kTargetNotPermitted[] =
    u"#ERROR: The target folder %ls can not be created. Insufficient permissions. The minimum permissions requirement "
    u"to create the target folder is full control.";
inline constexpr char16_t kNameTaken[] = u"#ERROR: %ls cannot become %ls: another item has that name there.";
inline constexpr char16_t kPreScanningFailed[] = u"#ERROR: PreScanning failed for Source = %ls and Target = %ls.";
inline constexpr char16_t kNoListing[] = u"#ERROR: Unable to get list of files for path = %ls.";
inline constexpr char16_t kNoListingForCopy[] =
    u"#ERROR: There was an error during path validation. Error message: Unable to get list of files for path = %ls.";

// Room on the target.
inline constexpr char16_t kSpaceOfParent[] =
    u"#INFO: Target %ls doesn't exists so checking free space using parent directory %ls";
inline constexpr char16_t kSizeUnknown[] = u"#ERROR: Failed to obtain size of %ls";
inline constexpr char16_t kFreeSpaceUnknown[] = u"#ERROR: Failed to obtain available free space on : %ls";
inline constexpr char16_t kNotEnoughSpace[] =
    u"#ERROR: There is not enough free disk space on target %ls. Browse to a different location or delete one or more "
    u"files to free disk space, and try again.";

// What could not be made, moved, copied or removed.
inline constexpr char16_t kTargetFolderNotCreated[] = u"#ERROR: Failed To Create Target Folder: %ls";
inline constexpr char16_t kDirectoryNotCreated[] = u"#ERROR: Failed To create directory = %ls.";
inline constexpr char16_t kGoingToCopy[] = u"#INFO: Going to copy files and folders from Source = %ls to Target = %ls.";
inline constexpr char16_t kCopyFailed[] =
    u"#ERROR: Unable to copy files and folders from Source = %ls to Target = %ls.";
inline constexpr char16_t kMoveFailed[] =
    u"#ERROR: Unable to move files and folders from Source = %ls to Target = %ls.";
inline constexpr char16_t kOthersStay[] =
    u"#ERROR: Unable to move all files and folders back to %ls. The others stay in %ls.";
inline constexpr char16_t kTimesNotCopied[] = u"#ERROR: Unable to copy the times of folder %ls.";
inline constexpr char16_t kSecurityNotRestored[] =
    u"#ERROR: Unable to restore access rights to file and folder in Target Path = %ls.";
inline constexpr char16_t kItselfNotRestored[] =
    u"#ERROR: Unable to restore the security, attributes and times of %ls.";
inline constexpr char16_t kDescriptorNotRestored[] = u"#ERROR: Unable to restore the access rights of %ls. ";
inline constexpr char16_t kItselfNotRead[] = u"#ERROR: Unable to read the attributes of the folder %ls. ";
inline constexpr char16_t kSharesNotRead[] = u"#ERROR: Unable to read the network shares of folder %ls.";
inline constexpr char16_t kFileNotRemoved[] = u"#INFO: The file %ls could not be removed. ";
inline constexpr char16_t kFolderNotRemoved[] = u"#ERROR: Unable to remove folder %ls. ";
inline constexpr char16_t kVolumeNotMounted[] = u"#ERROR: Failed to Mount Volume on Target Folder: %ls";
inline constexpr char16_t kVolumeNotUnmounted[] = u"#ERROR: Unable to unmount the volume from folder %ls. ";
inline constexpr char16_t kMountNotTakenBack[] = u"#ERROR: Failed to unmount the volume from the folder %ls. ";

// Junctions, and the records of redirections.
inline constexpr char16_t kJunctionExists[] = u"#ERROR: Junction already exists for Source = %ls and Target = %ls.";
inline constexpr char16_t kNoJunction[] = u"#ERROR: Junction doesn't exists for Source = %ls and Target = %ls.";
inline constexpr char16_t kJunctionTargetUnknown[] = u"#ERROR: Unable to get Junction Target Path.";
inline constexpr char16_t kJunctionNotCreated[] =
    u"#ERROR: Unable to create junction for Source = %ls and Target = %ls.";
inline constexpr char16_t kRecordExists[] = u"ERROR: Source and Target Path already exists in Registry.";
inline constexpr char16_t kRecordNotAdded[] =
    u"#ERROR: Unable to add Junction Point to Registry for Source = %ls and Target = %ls.";
inline constexpr char16_t kRecordNotRemoved[] =
    u"#ERROR: Unable to remove Junction Point from Registry for Source = %ls and Target = %ls.";
inline constexpr char16_t kRecordsNotUpdated[] = u"#ERROR: Unable to update redirected folder path in registry.";

// The configuration file, and Windows' records of profiles.
inline constexpr char16_t kConfigNotRead[] = u"#ERROR: Failed to read config file.";
inline constexpr char16_t kConfigLacksInformation[] = u"#ERROR: Failed to obtain information from config file.";
inline constexpr char16_t kConfigLacksProfiles[] = u"#ERROR: Failed to obtain profile information from config file.";
inline constexpr char16_t kConfigLacksRegistryLocation[] =
    u"#ERROR: Unable to get Registry Redirect Location from config file.";
inline constexpr char16_t kProfilesNotRead[] = u"#ERROR: Failed to obtain User Profile Information.";
inline constexpr char16_t kProfilePathNotUpdated[] = u"#ERROR: Unable to update user profile path in registry.";

}  // namespace line
