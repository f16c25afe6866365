// The calculation functions in their common signature. Each room defines its own; the registry table names them.
//
// Common to all: the function ID and the environment are ignored; each returns 0, and a failure is the result
// "!!ERROR!!" with its details in the last-error record (error_model.h). What the SDK's wrapper calls throw
// (std::bad_alloc, std::exception) passes through to the host.
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
Handler KORB_GetDrives;
Handler KORB_GetDriveSize;
Handler KORB_GetDriveSizeFree;
Handler KORB_GetDriveSizeUsed;
Handler KORB_GetFolders;
Handler KORB_GetFiles;
Handler KORB_GetNumSubfolders;
Handler KORB_GetNumFiles;
Handler KORB_GetFileSize;
Handler KORB_GetFileCreationDate;
Handler KORB_GetFileModificationDate;
Handler KORB_GetFileAccessDate;
Handler KORB_GetFileExists;
Handler KORB_GetFolderSize;
Handler KORB_GetFolderCreationDate;
Handler KORB_GetFolderModificationDate;
Handler KORB_GetFolderAccessDate;
Handler KORB_GetFolderExists;
Handler KORB_GetFileMakerPath;

// operations/
Handler KORB_FileCopy;
Handler KORB_FileMove;
Handler KORB_FileRename;
Handler KORB_FileDelete;
Handler KORB_FolderCreate;
Handler KORB_FolderCopy;
Handler KORB_FolderMove;
Handler KORB_FolderRename;
Handler KORB_FolderDelete;
Handler KORB_GetFilePath;
Handler KORB_GetFolderPath;
Handler KORB_OpenFile;

// archive/
Handler KORB_EncryptFile;
Handler KORB_DecryptFile;
Handler KORB_CompressFile;
Handler KORB_ExpandFile;
Handler KORB_CompressAndEncrypt;
Handler KORB_DecryptAndExpand;
