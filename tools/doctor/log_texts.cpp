#include "tools/doctor/log_texts.h"

namespace zentpost::doctor {
namespace {

// The texts of checks that guard the routines against wrong calls.
constexpr std::string_view kNever =
    "Does not occur: the tool guards itself here against a mistake of its own.";

constexpr LogText kReadFromFile[] = {
    {"ReadFromFile(): Parse JSON failed with error '%s'",
     "The file is no job file and is taken for the document, which is right for a document; the "
     "text between the marks is where the JSON stops making sense, and nothing there means that "
     "the file cannot be opened or ends too early.",
     "D25 D26"},
    {"ReadFromFile(): Read document failed",
     "The job file names no document, so that the job has neither document nor fields.", "D27 D28"},
};

constexpr LogText kGetDocumentFromJson[] = {
    {"GetDocumentFromJson(): JSON error", kNever, ""},
    {"GetDocumentFromJson(): Filename not found", "The job file has no text FilePath at its top.",
     "D27 D28"},
    {"GetDocumentFromJson(): JobName not found",
     "The job file has no text SourceFileName at its top.", "D27 D28"},
};

constexpr LogText kStartZentpost[] = {
    {"StartZentpost(): %s",
     "The tool was started with this line; look here first for what it was really given.", "D31"},
};

constexpr LogText kProcessToOutlookClient[] = {
    {"ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.",
     "Something accepts connections on the add-in's port, and the job is handed to it.", "D04"},
    {"ProcessToOutlookClient(): Created JSON:\r\n%s\r\n",
     "The lines that follow are what the add-in gets; letters beyond the English ones look garbled "
     "here as a rule, and that is right.",
     "D30 D33"},
    {"ProcessToOutlookClient(): The JSON creation failed.",
     "What the add-in should get could not be put together: as a rule memory has run out.", ""},
    {"ProcessToOutlookClient(): The communication port is not valid.",
     "The add-in's port has vanished from the registry since the job began.", "D01 D02"},
    {"ProcessToOutlookClient(): The client connection to %s:%d cannot be established.",
     "The add-in has stopped listening since the job began.", "D03"},
    {"ProcessToOutlookClient(): The sending failed.",
     "The add-in broke the connection or did not read for too long; the job goes on directly to "
     "the mail client.",
     "D04"},
    {"ProcessToOutlookClient(): The JSON payload successfully sent.",
     "The job went to the program on the add-in's port; what becomes of it there the tool is not "
     "told.",
     "D04 D30"},
};

constexpr LogText kUtf8[] = {
    {"_utf8(): A memory error occurred.", "Memory ran out over a text.", ""},
    {"_utf8(): The utf-8 forward conversion failed.",
     "A text cannot be converted and is left empty, the fax number too: most texts in Chinese or "
     "Japanese, for example.",
     "D30"},
};

constexpr LogText kWriteJobFileResult[] = {
    {"WriteJobFileResult(): Parse JSON failed with error '%s'",
     "The job file has vanished or changed since the job began, and gets no Result.", "D32"},
};

constexpr LogText kProcessToExtendedMapi[] = {
    {"ProcessToExtendedMapi(): Processing single job to extended MAPI.",
     "The job goes directly to the mail client: no add-in is set up or listens, or it did not take "
     "the job.",
     "D01 D02 D03 D05 D33"},
    {"ProcessToExtendedMapi(): Parameters :", "The job's fields follow, one a line.", ""},
    {"ProcessToExtendedMapi(): Receiver   : %s",
     "The fax number; without one the mail client shows the message.", "D28 D31 D35"},
    {"ProcessToExtendedMapi(): Recipient  : %s", "The recipient's name.", "D28 D31"},
    {"ProcessToExtendedMapi(): Sendername : %s", "The sender's name.", "D28 D31"},
    {"ProcessToExtendedMapi(): Comment    : %s", "The text of the message.", "D28 D31"},
    {"ProcessToExtendedMapi(): Subject    : %s", "The subject.", "D28 D31"},
    {"ProcessToExtendedMapi(): SendTime   : %s",
     "The time to send at, which is only logged on this way.", "D28"},
    {"ProcessToExtendedMapi(): Attachment : %s", "The document's path.", "D25 D27 D29 D30"},
    {"ProcessToExtendedMapi(): Attach Name: %s", "The document's name as an attachment.",
     "D28 D31"},
    {"ProcessToExtendedMapi(): ECM        : %s",
     "Error correction of the fax, which is only logged on this way.", "D28"},
    {"ProcessToExtendedMapi(): Preview    : %s",
     "With True the mail client shows the message and waits for the user.", "D35"},
};

constexpr LogText kSendMail[] = {
    {"SendMail(): MAPIInititialize failed.",
     "No usable MAPI library was found, or it did not start.", "D12 D13 D14"},
    {"SendMail(): The default profile cannot be obtained.",
     "The mail client did not tell its profiles; the logon is tried without one.", "D14 D22 D35"},
    {"SendMail(): Profile '%s' will be used.",
     "This profile of the mail client is taken; with nothing between the marks none is the "
     "default.",
     "D22 D35"},
    {"SendMail(): MAPILogonEx with profile '%s'.", "The tool logs on to this profile.", ""},
    {"SendMail(): MAPILogonEx with profile '%s' and Logon UI.",
     "The first logon failed; the tool tries a session of its own, and the mail client may show a "
     "window.",
     "D24"},
    {"SendMail(): MAPILogonEx without profile and Logon UI.",
     "No default profile is known; the mail client may ask for one in a window.", "D22 D35"},
    {"SendMail(): MAPILogonEx failed.",
     "The mail client refused the logon, or the user cancelled it: start the mail client as this "
     "user, then send again.",
     "D14 D22 D23 D24"},
    {"SendMail(): The default message store cannot be found.",
     "The profile has no default mailbox or data file that can be opened; the lines before tell "
     "more.",
     "D14"},
    {"SendMail(): The store properties cannot be obtained.",
     "The mailbox or data file does not tell where its folders are.", ""},
    {"SendMail(): The outbox folder cannot be opened.",
     "The default mailbox or data file has no Outbox, or it cannot be opened.", ""},
    {"SendMail(): A new message cannot be created.",
     "The mail client refused a new message in the Outbox; its disk or mailbox may be full.", ""},
    {"SendMail(): The recipient '%s' cannot be added.",
     "The mail client did not take the recipient; the lines before tell why.", "D09 D10"},
    {"SendMail(): Message content cannot be set.",
     "The mail client did not take subject or text; the lines before tell why.", ""},
    {"SendMail(): The attachment cannot be added.",
     "The document did not become an attachment; the lines before tell why.", "D27 D29"},
    {"SendMail(): Submit message failed.",
     "The finished message was not taken for sending; it stays in the Outbox, and the document may "
     "be deleted already.",
     ""},
    {"SendMail(): Message sent successfully.",
     "The message waits in the mail client's Outbox; sending it is the mail client's business from "
     "here on.",
     ""},
    {"SendMail(): Form manager cannot be opened.",
     "The mail client cannot show the message; it stays in the Outbox, and the document may be "
     "deleted already.",
     "D14"},
    {"SendMail(): Message cannot be opened modally.",
     "The message was not shown; it stays in the Outbox, and the document may be deleted already.",
     ""},
    {"SendMail(): Mail will be opened as modal window.",
     "The message was shown and its window has closed again, whether the user sent it or not.",
     "D35"},
    {"SendMail(): cleanup.", "Harmless: the tool lets go of the mail client.", ""},
    {"SendMail(): Function end.", "Harmless: the way through the mail client has ended.", ""},
};

constexpr LogText kGetDefaultProfile[] = {
    {"GetDefaultProfile(): There are no profiles.",
     "The mail client has no profile for this Windows user: set it up once.", "D22"},
};

constexpr LogText kFindDefaultMsgStore[] = {
    {"FindDefaultMsgStore(): There are no message stores found.",
     "The profile has no mailbox and no data file, or does not tell them.", ""},
    {"FindDefaultMsgStore(): The message store canot be opened as online mode.",
     "The mailbox cannot be opened with a connection to its server; the tool tries again without.",
     ""},
    {"FindDefaultMsgStore(): The message store canot be opened.",
     "The mailbox or data file cannot be opened at all.", ""},
};

constexpr LogText kProcessClientAddressAutomation[] = {
    {"ProcessClientAddressAutomation(): The recipient address is NULL.", kNever, ""},
    {"ProcessClientAddressAutomation(): The recipient address is empty.", kNever, ""},
    {"ProcessClientAddressAutomation(): The output buffer for the address calculation is invalid.",
     kNever, ""},
    {"ProcessClientAddressAutomation(): The output buffer for the address type is invalid.", kNever,
     ""},
    {"ProcessClientAddressAutomation(): The client address automation is turned on:",
     "AddrExtFaxEnabled is 1; what is put around the number follows.", ""},
    {"ProcessClientAddressAutomation(): Address Prefix: '%s'", "What stands before the number.",
     ""},
    {"ProcessClientAddressAutomation(): Address Suffix: '%s'", "What stands behind the number.",
     ""},
    {"ProcessClientAddressAutomation(): The client address automation is turned off.",
     "The number is taken as it is.", "D09 D10"},
    {"ProcessClientAddressAutomation(): %s --> '%s:%s'",
     "The fax number, and the type and address that were made of it.", "D09 D10"},
};

constexpr LogText kAddRecipientAddress[] = {
    {"AddRecipientAddress(): The recipient address is NULL.", kNever, ""},
    {"AddRecipientAddress(): The recipient address is empty.", kNever, ""},
    {"AddRecipientAddress(): The message interface is NULL.", kNever, ""},
    {"AddRecipientAddress(): The address book cannot be opened.",
     "The mail client's address book did not open.", ""},
    {"AddRecipientAddress(): The address list cannot be allocated.",
     "The mail client's library gave no memory, and the message goes on without a recipient.",
     "D14"},
    {"AddRecipientAddress(): The ONE OFF address creation failed.",
     "The mail client did not take the address or its type.", "D09 D10"},
    {"AddRecipientAddress(): The address list resolution failed.",
     "The mail client cannot resolve the address, or finds several that fit.", "D09 D10"},
    {"AddRecipientAddress(): The recipient cannot be added.",
     "The message did not take the recipient.", ""},
    {"AddRecipientAddress(): The message cannot be saved.",
     "The message was not saved with its recipient; the mailbox may be full.", ""},
};

constexpr LogText kSetMessageContents[] = {
    {"SetMessageContents()", "Harmless: the routine begins.", ""},
    {"  Sendername    : ", "Harmless: always without a value.", ""},
    {"  Subject       : ", "Harmless: always without a value.", ""},
    {"  Bodytext      : ", "Harmless: always without a value.", ""},
    {"SetMessageContents(): Setting properties failed.",
     "The message did not take subject, text or sender.", ""},
    {"SetMessageContents(): Saving properties failed.",
     "The message was not saved; the mailbox may be full.", ""},
};

constexpr LogText kAddAttachment[] = {
    {"AddAttachment(): '%s'",
     "The document's path; with nothing between the marks the job names none.", "D27"},
    {"AddAttachment(): The message interface is NULL.", kNever, ""},
    {"AddAttachment(): The extension cannot be retrieved.",
     "The job names no document, or memory has run out.", "D27"},
    {"AddAttachment(): The mime tag cannot be retrieved.",
     "The attachment has no name, which alone does not stop the job; where \"The attachment cannot "
     "be "
     "added.\" follows, the job names no document or memory has run out.",
     "D27"},
    {"AddAttachment(): The attachment property tag memory is not available.",
     "The mail client's library gave no memory.", "D14"},
    {"AddAttachment(): The attachment path cannot be read.",
     "The document cannot be read; with a code that begins with 0x0000 the message goes out all "
     "the same, without the document.",
     "D25 D29 D34"},
    {"AddAttachment(): An attachment could not been created.",
     "The message did not take an attachment.", ""},
    {"AddAttachment(): The properties of the attachment could not been set.",
     "The message did not take the document; it may be too large for the mail client.", ""},
    {"AddAttachment(): Attachment properties are set.", "The message has taken the document.", ""},
    {"AddAttachment(): The attachment cannot be saved. The attachment is corrupt.",
     "The attachment was not saved; the document stays where it is.", ""},
    {"AddAttachment(): Attachment added successfully,",
     "The attachment is saved; the file is deleted next.", ""},
    {"AddAttachment(): The attachment file was deleted successfully.",
     "The document is gone from its place, as it should be.", ""},
    {"AddAttachment(): The attachment file cannot be deleted.",
     "The document stays, because it is read-only or in use; the job goes on.", "D29"},
};

constexpr LogText kGetAttachmentExtension[] = {
    {"GetAttachmentExtension(): The file path parameter is NULL.", kNever, ""},
    {"GetAttachmentExtension(): The file path parameter is empty.",
     "The job names no document, and fails.", "D27"},
};

constexpr LogText kGetAttachmentFilename[] = {
    {"GetAttachmentFilename(): The file path parameter is NULL.", kNever, ""},
    {"GetAttachmentFilename(): The file path parameter is empty.",
     "The job names no document, and fails.", "D27"},
};

constexpr LogText kGetAttachmentMimeTag[] = {
    {"GetAttachmentMimeTag(): The output parameter is invalid.", kNever, ""},
    {"GetAttachmentMimeTag(): The extension parameter is NULL.", kNever, ""},
    {"GetAttachmentMimeTag(): The extension parameter is empty.",
     "The attachment has no name, as with a document given without a job file; /attdisplayname in "
     "the line gives it one.",
     ""},
};

constexpr LogText kOpenMessageModal[] = {
    {"OpenMessageModal(): The specified message is NULL.", kNever, ""},
    {"OpenMessageModal(): Getting properties failed.",
     "The mail client did not give what its window needs.", ""},
    {"OpenMessageModal(): Dialog preparation failed.",
     "The mail client did not prepare its window.", ""},
    {"OpenMessageModal(): Dialog prepared.", "The window is prepared.", "D35"},
    {"OpenMessageModal(): Dialog message status retrieval failed.",
     "The Outbox did not tell the message's state, and no window opens.", ""},
    {"OpenMessageModal(): Message status retrieval succeeded.",
     "The window opens now: look for it on the taskbar.", "D35"},
    {"OpenMessageModal(): The form cannot be shown.", "The mail client did not show its window.",
     ""},
};

constexpr LogText kDoMAPIFastShutdown[] = {
    {"DoMAPIFastShutdown(): Function in progress.", "Harmless: the session is being ended.", ""},
    {"DoMAPIFastShutdown(): Fast shutdown failed.",
     "Harmless: the mail client may take longer to end.", ""},
    {"DoMAPIFastShutdown(): Function end.", "Harmless: the session has been ended.", ""},
};

constexpr LogText kBehindAFailure[] = {
    {"Code 0x%.8x --> %s",
     "The number of the failure and a text for it; the table of MAPI results has more of them.",
     ""},
};

constexpr LogRoutine kRoutines[] = {
    {"ReadFromFile",
     "Reads the first file of the line, which is a job file or the document itself.",
     kReadFromFile},
    {"GetDocumentFromJson", "Takes the document's path and name from the job file.",
     kGetDocumentFromJson},
    {"StartZentpost", "Begins the job.", kStartZentpost},
    {"ProcessToOutlookClient", "Hands the job to the mail client's add-in.",
     kProcessToOutlookClient},
    {"_utf8", "Converts a text for the add-in or the job file.", kUtf8},
    {"WriteJobFileResult", "Writes the outcome into the job file.", kWriteJobFileResult},
    {"ProcessToExtendedMapi", "Begins the way directly through the mail client.",
     kProcessToExtendedMapi},
    {"SendMail", "Makes the message in the mail client and sends or shows it.", kSendMail},
    {"GetDefaultProfile", "Asks the mail client for its default profile.", kGetDefaultProfile},
    {"FindDefaultMsgStore", "Opens the default mailbox or data file.", kFindDefaultMsgStore},
    {"ProcessClientAddressAutomation", "Makes the recipient's address out of the fax number.",
     kProcessClientAddressAutomation},
    {"AddRecipientAddress", "Gives the message its recipient.", kAddRecipientAddress},
    {"SetMessageContents", "Gives the message its subject and text.", kSetMessageContents},
    {"AddAttachment", "Attaches the document and then deletes the file.", kAddAttachment},
    {"GetAttachmentExtension", "Tells the attachment's file type.", kGetAttachmentExtension},
    {"GetAttachmentFilename", "Tells the attachment's name.", kGetAttachmentFilename},
    {"GetAttachmentMimeTag", "Looks the attachment's type up.", kGetAttachmentMimeTag},
    {"OpenMessageModal", "Shows the message to the user.", kOpenMessageModal},
    {"DoMAPIFastShutdown", "Ends the session with the mail client.", kDoMAPIFastShutdown},
    {"Behind a failure", "Tells the number of the failure in the line before.", kBehindAFailure},
};

}  // namespace

std::span<const LogRoutine> LogRoutines() {
  return kRoutines;
}

}  // namespace zentpost::doctor
