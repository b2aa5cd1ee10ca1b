// The names of a job file's members.
#pragma once

namespace zentpost {

// At the top of the job file.
inline constexpr char kFilePathMember[] = "FilePath";
inline constexpr char kSourceFileNameMember[] = "SourceFileName";
inline constexpr char kCommandMember[] = "Cmd";
inline constexpr char kResultMember[] = "Result";  // written, not read

// In "Cmd".
inline constexpr char kParametersMember[] = "Parameters";
inline constexpr char kCommandsMember[] = "Commands";
inline constexpr char kReceiverMember[] = "Receiver";

struct FaxField {
  const char16_t* long_name;  // in "Cmd"/"Parameters"; may be empty
  const char16_t* letter;     // in "Cmd"/"Commands" and in the job's fields
};

// In the order in which the fields are entered. The add-in and the mail client rely on the pairing
// as it is, "RecipientName" with E and "Comment" with K included.
inline constexpr FaxField kFaxFields[] = {
    {u"Baudrate", u"B"}, {u"ECM", u"C"},     {u"RecipientName", u"E"}, {u"Comment", u"K"},
    {u"NGDX", u"N"},     {u"", u"O"},        {u"Preview", u"P"},       {u"Subject", u"S"},
    {u"UserName", u"U"}, {u"SendTime", u"Z"}};

}  // namespace zentpost
