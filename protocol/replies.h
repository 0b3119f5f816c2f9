// Every text the command server sends, and the sync line its clients use to pair replies.
//
// A reply is one line: "OK", "YES", "NO", or "ERROR: " and an upper-case description with a fixed
// text per cause. The plug-in sends these and the clients recognise them; neither spells a reply
// anywhere else.
#pragma once

#include <string_view>

namespace protocol {

constexpr const char* kReplyOk = "OK";
constexpr const char* kReplyYes = "YES";
constexpr const char* kReplyNo = "NO";
constexpr std::string_view kErrorPrefix = "ERROR: ";

constexpr const char* kErrorSyntax = "ERROR: INVALID COMMAND SYNTAX";
constexpr const char* kErrorUnknownCommand = "ERROR: UNKNOWN COMMAND";
constexpr const char* kErrorAlreadyRunning = "ERROR: ACQ ALREADY RUNNING";
constexpr const char* kErrorStartArgumentCount = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 5)";
constexpr const char* kErrorTwoArguments = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 2)";
constexpr const char* kErrorOneArgument = "ERROR: INVALID NUMBER OF PARAMETERS (MUST BE 1)";
constexpr const char* kErrorDeviceIndex = "ERROR: INVALID DEVICE INDEX";
constexpr const char* kErrorAcqCount = "ERROR: INVALID ACQ COUNT";
constexpr const char* kErrorAcqTime = "ERROR: INVALID ACQ TIME";
constexpr const char* kErrorThreshold = "ERROR: INVALID THL";
constexpr const char* kErrorSettingThreshold = "ERROR: FAILED SETTING THL";
constexpr const char* kErrorAcquisitionFailed = "ERROR: ACQUISITION FAILED";
constexpr const char* kErrorUnexpected = "ERROR: UNEXPECTED ERROR";
constexpr const char* kErrorCommandTooLong = "ERROR: COMMAND TOO LONG";
constexpr const char* kErrorAccessDenied = "ERROR: ACCESS DENIED";

// Every line the server may send.
constexpr const char* kAllReplies[] = {
    kReplyOk,
    kReplyYes,
    kReplyNo,
    kErrorSyntax,
    kErrorUnknownCommand,
    kErrorAlreadyRunning,
    kErrorStartArgumentCount,
    kErrorTwoArguments,
    kErrorOneArgument,
    kErrorDeviceIndex,
    kErrorAcqCount,
    kErrorAcqTime,
    kErrorThreshold,
    kErrorSettingThreshold,
    kErrorAcquisitionFailed,
    kErrorUnexpected,
    kErrorCommandTooLong,
    kErrorAccessDenied,
};

// The line that ends a session without a reply (an empty line does too).
constexpr const char* kQuitCommand = "QUIT()";
constexpr const char* kStopCommand = "STOP()";

// Sent after a command, the sync line is answered with kSyncReply, in order, in every state and
// without a call into the host: whatever arrives before that answer belongs to the command.
constexpr const char* kSyncCommand = "GUI_SETFILE()";
constexpr const char* kSyncReply = kErrorTwoArguments;

inline bool isErrorReply(std::string_view line) {
    return line.substr(0, kErrorPrefix.size()) == kErrorPrefix;
}

// The two lines that end an acquisition; the acquisition thread sends one whenever it ends.
inline bool isFinalReply(std::string_view line) {
    return line == kReplyOk || line == kErrorAcquisitionFailed;
}

}  // namespace protocol
