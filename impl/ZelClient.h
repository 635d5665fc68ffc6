// Entry points of the device's sensor-framework client library, which the activity interface
// loads at run time and looks up by these exported names. Shared with the simulated library.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// Called by the library with a batch of activity records (24-byte activity_event layout, back
// to back in the storage of `data`); `byteLength` counts the bytes of event data.
using ZelNotifyFunc = void (*)(int32_t status, int32_t byteLength, const std::vector<int32_t>& data);

// "ZelSetCallback": registers the notification function under a client name; negative = failure.
using ZelSetCallbackFunc = int32_t (*)(const std::string& client, ZelNotifyFunc notify);
// "ZelRunCommand": a text command with its parameter text and length; 0 = success. The library
// may fill `output`.
using ZelRunCommandFunc = int32_t (*)(const std::string& client, const std::string& command,
                                      const char* param, int32_t length,
                                      std::vector<uint8_t>& output);
// "ZelRunCommandInt": a command with two integer arguments.
using ZelRunCommandIntFunc = int32_t (*)(const std::string& client, const std::string& command,
                                         int32_t first, int32_t second);
// "ZelGetData": reads a data item ("ar_config", "ar_status") into `output`; negative = failure.
using ZelGetDataFunc = int32_t (*)(const std::string& key, int32_t flags,
                                   std::vector<int32_t>& output);
// "ZelMotionEnable": switches the library's motion service on.
using ZelMotionEnableFunc = bool (*)(int32_t arg);
