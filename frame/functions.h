// The 41 calculation functions in their common signature. Each room defines its own; the registry table names them.
//
// Common to all: the function ID and the environment are ignored; the answer is always 0, and a failure is the result
// "!!ERROR!!" with its details in the last-error record (error_model.h). What the SDK's wrapper calls throw
// (std::bad_alloc, std::exception) passes through to the host.
//
// Thread rule: any thread, several at once.
#pragma once

#include "frame/fmx_sdk.h"

using Handler = fmx::errcode(short functionId, const fmx::ExprEnv& environment, const fmx::DataVect& arguments,
                             fmx::Data& result);

// frame/
Handler KORB_Version;
Handler KORB_GetLastError;

// log/
Handler KORB_LogSet;
Handler KORB_LogClear;

// queries/
[[gnu::weak]] Handler KORB_GetDrives;
[[gnu::weak]] Handler KORB_GetDriveSize;
[[gnu::weak]] Handler KORB_GetDriveSizeFree;
[[gnu::weak]] Handler KORB_GetDriveSizeUsed;
[[gnu::weak]] Handler KORB_GetFolders;
[[gnu::weak]] Handler KORB_GetFiles;
[[gnu::weak]] Handler KORB_GetNumSubfolders;
[[gnu::weak]] Handler KORB_GetNumFiles;
[[gnu::weak]] Handler KORB_GetFileSize;
[[gnu::weak]] Handler KORB_GetFileCreationDate;
[[gnu::weak]] Handler KORB_GetFileModificationDate;
[[gnu::weak]] Handler KORB_GetFileAccessDate;
[[gnu::weak]] Handler KORB_GetFileExists;
[[gnu::weak]] Handler KORB_GetFolderSize;
[[gnu::weak]] Handler KORB_GetFolderCreationDate;
[[gnu::weak]] Handler KORB_GetFolderModificationDate;
[[gnu::weak]] Handler KORB_GetFolderAccessDate;
[[gnu::weak]] Handler KORB_GetFolderExists;
[[gnu::weak]] Handler KORB_GetFileMakerPath;

// operations/
[[gnu::weak]] Handler KORB_FileCopy;
[[gnu::weak]] Handler KORB_FileMove;
[[gnu::weak]] Handler KORB_FileRename;
[[gnu::weak]] Handler KORB_FileDelete;
[[gnu::weak]] Handler KORB_FolderCreate;
[[gnu::weak]] Handler KORB_FolderCopy;
[[gnu::weak]] Handler KORB_FolderMove;
[[gnu::weak]] Handler KORB_FolderRename;
[[gnu::weak]] Handler KORB_FolderDelete;
[[gnu::weak]] Handler KORB_GetFilePath;
[[gnu::weak]] Handler KORB_GetFolderPath;
[[gnu::weak]] Handler KORB_OpenFile;

// archive/
Handler KORB_EncryptFile;
Handler KORB_DecryptFile;
Handler KORB_CompressFile;
Handler KORB_ExpandFile;
Handler KORB_CompressAndEncrypt;
Handler KORB_DecryptAndExpand;
