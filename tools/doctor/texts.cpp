#include "tools/doctor/texts.h"

#include <algorithm>

#include "tools/support/wrap.h"

namespace zentpost::doctor {
namespace {

constexpr CodeText kCodeTexts[] = {
    {"D01", "No port of the add-in is set up",
     "The tool does not know where the mail client's add-in listens. Every job goes directly to "
     "the mail client, through its MAPI library.",
     "The value TolvanAddinPort in HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin is missing. "
     "The add-in may not be installed for this Windows user, or the tool may run as another one.",
     "Nothing, where jobs are meant to go without the add-in. Otherwise check that the add-in is "
     "installed for this Windows user and that the doctor was started as the same user, then look "
     "for the value again."},
    {"D02", "The add-in's port is not a plain number",
     "The tool may take another port than is meant, or none at all. The finding says which port it "
     "takes.",
     "TolvanAddinPort in HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin must be a string value "
     "(REG_SZ) that holds nothing but a number from 1 to 65535. A DWORD, a blank, or any other "
     "text beside the digits is wrong, and 70000 counts as 4464.",
     "Note the port on which the add-in listens. Delete TolvanAddinPort, create it again as a "
     "String Value, and type that port, for example 5000."},
    {"D03", "Nothing listens on the add-in's port",
     "A port is set up for the add-in, but no program accepts connections on it. Jobs go directly "
     "to the mail client instead, through its MAPI library.",
     "The mail client is not running, its add-in is switched off, or the add-in listens on another "
     "port than the one in TolvanAddinPort.",
     "Start the mail client, then send again. If that does not help, check that the add-in is "
     "switched on (in Outlook: File, Options, Add-ins) and that it uses the port that "
     "TolvanAddinPort in HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin names."},
    {"D04", "A program listens on the add-in's port",
     "Jobs are handed to this program. The tool cannot tell whether it is the add-in, and gets no "
     "answer from it.",
     "The finding names the program and its process, where Windows tells them. With the add-in "
     "running it is the mail client, for example OUTLOOK.EXE.",
     "Compare the program with the user's mail client. If it is another program, it gets the jobs: "
     "close it or give the add-in another port, then send again."},
    {"D05", "Sending through the mail client is switched off",
     "A job that does not go to the add-in is not sent at all. The tool reports it as delivered, "
     "with exit code 0, and nobody gets it.",
     "The value SkipExtendedMapi in Software\\Sollvex\\FaxClient is not 0. It counts in "
     "HKEY_CURRENT_USER, and in HKEY_LOCAL_MACHINE where the user's is 0 or missing. A text in "
     "it can count as on too, even \"0\".",
     "Delete SkipExtendedMapi from the key that the finding names, then send again. The 32-bit "
     "tool reads the machine's value in HKEY_LOCAL_MACHINE\\Software\\WOW6432Node\\Sollvex"
     "\\FaxClient."},
    {"D06", "The log file is off",
     "The steps of a job are not written down, so that nobody can look later why it failed.",
     "The value LogLevel in Software\\Sollvex\\FaxClient is 0 or missing, in HKEY_CURRENT_USER as "
     "well as in HKEY_LOCAL_MACHINE.",
     "Create the DWORD value LogLevel with 1 in HKEY_CURRENT_USER\\Software\\Sollvex\\FaxClient, "
     "send again, and read %LOCALAPPDATA%\\VORNA\\Client\\Log\\zentpost.log. It holds fax numbers "
     "and texts: delete it when it is not needed any more."},
    {"D07", "The log file is on but cannot be written",
     "The steps of a job are not written down although LogLevel asks for it. The jobs themselves "
     "do not suffer.",
     "The folder of the log is missing, which the tool never creates, or the file is read-only or "
     "closed to this user.",
     "Look at the path in the finding. Create the folder if it is missing; otherwise take "
     "\"Read-only\" off the file in its Properties, or let this user write to it on the tab "
     "\"Security\"."},
    {"D08", "A switch in the registry has the wrong type",
     "LogLevel or SkipExtendedMapi may not do what it seems to say. A text of one character counts "
     "as on, even \"0\"; a longer one counts as missing.",
     "The value was not created as a DWORD (REG_DWORD).",
     "Delete the value that the finding names. Where it is wanted, create it again as a DWORD "
     "(32-bit) Value: LogLevel with 1 writes the log file; SkipExtendedMapi with 1 stops the "
     "sending through the mail client."},
    {"D09", "The switch for fax addresses is neither 1 nor 0",
     "The fax address automation is off: the number goes out without the prefix and suffix that "
     "are set up for it.",
     "AddrExtFaxEnabled in HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin switches it on only "
     "as a string value (REG_SZ) of exactly 1. A DWORD, \"true\", or a 1 with a blank does not.",
     "Delete AddrExtFaxEnabled, create it again as a String Value, and type 1 for on or 0 for "
     "off."},
    {"D10", "The user may not open the fax address settings",
     "The fax address automation is set up and yet off: the number goes out without its prefix and "
     "suffix.",
     "The tool opens HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin for reading and writing, "
     "and this user is allowed less.",
     "Ask the administrator to allow this user \"Full Control\" of that key (in the registry "
     "editor: right click, Permissions), then send again."},
    {"D11", "Windows uses another character set than expected",
     "The add-in gets other bytes than on a Western system (Windows-1252). Letters like umlauts "
     "may arrive wrong; English letters and digits are not affected.",
     "Windows uses UTF-8, or a character set in which a letter can take several bytes, for "
     "programs that do not use Unicode.",
     "Send a test with an umlaut through the add-in. If it arrives wrong, ask the administrator to "
     "look at the Control Panel, Region, Administrative, \"Change system locale\": the tick at "
     "UTF-8 must be off. The change affects all programs and needs a restart."},
    {"D12", "No usable MAPI library of a mail client is found",
     "The tool cannot hand a job directly to the mail client. Jobs that the add-in does not "
     "take fail with exit code 1.",
     "No mail client with Extended MAPI is installed, its entries in the registry lead nowhere, or "
     "its library does not fit the tool. D13 or D14 in the report says the latter.",
     "Follow D13 or D14 first if one is in the report. Otherwise install or repair a mail client "
     "with Extended MAPI, such as the classic Outlook, and run the doctor again. Until then only "
     "the add-in can take jobs."},
    {"D13", "The MAPI library is for the other bitness (32/64-bit)",
     "A 32-bit program cannot load a 64-bit library, nor the other way round. The tool passes the "
     "mail client's library over.",
     "There are two executables of the tool, a 32-bit and a 64-bit one, and this one is not the "
     "mail client's kind. A library for ARM64 does not fit either of them.",
     "Use the other executable: with a 32-bit mail client the 32-bit zentpost.exe, with a 64-bit "
     "one the 64-bit zentpost.exe. In Outlook \"About Outlook\" (File, Office Account) tells which "
     "it is."},
    {"D14", "The MAPI library lacks functions that are needed",
     "The tool takes the first library that loads and looks for no better one. A job that "
     "needs a missing function fails. Where only MAPIOpenFormMgr is missing, a message that should "
     "be shown is not, and its document is deleted all the same.",
     "The library belongs to a mail client that offers only Simple MAPI, or to none. The finding "
     "names the library and the functions.",
     "Ask the administrator to install or repair a mail client with Extended MAPI, such as the "
     "classic Outlook, and to name it under HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail, value "
     "(Default)."},
    {"D15", "A registered library does not exist",
     "The registry names a MAPI library that is not there. The tool goes on to the next place "
     "where one may be.",
     "The mail client may have been removed, moved or updated, or the path may be misspelt.",
     "Repair the mail client (Settings, Apps, Installed apps), or correct the path that the "
     "finding names. DllPathEx and DllPath stand in HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail, "
     "in the key of the mail client."},
    {"D16", "A registered text of the mail client cannot be used",
     "The tool skips this entry of the mail client as if it were not there.",
     "It has more than 129 characters, its %...% variables make it longer than 258, or it is no "
     "text or empty where DllPathEx or DllPath should hold a path.",
     "Write the value that the finding names again as a String Value of at most 129 characters. "
     "Where the path itself is longer, install the mail client in a folder with a shorter one."},
    {"D17", "No default mail client is set for this computer",
     "The tool does not know which mail client is meant, and reads no client's own entries. It can "
     "still find an installed Outlook or the library of Windows.",
     "The value (Default) of HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail is missing or empty.",
     "Ask the administrator to set (Default) to the name of one of the keys below it, for example "
     "Microsoft Outlook. The choice in the Windows settings does not count here."},
    {"D18", "The default mail client has no key of its own",
     "The name of the default mail client leads nowhere, so that its library is not found there. "
     "The tool can still find an installed Outlook or the library of Windows.",
     "Below HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail no key has the name that stands in the "
     "value (Default). The client may have been removed, or its name is misspelt.",
     "Ask the administrator to set (Default) to the name of one of the keys below it, for example "
     "Microsoft Outlook, or to repair the mail client."},
    {"D19", "The user's own default mail client is ignored",
     "This user has chosen another default mail client than the computer has. The tool looks at "
     "the computer's alone, so that the job may go to the wrong one.",
     "The value (Default) of Software\\Clients\\Mail in HKEY_CURRENT_USER names another client "
     "than the one in HKEY_LOCAL_MACHINE.",
     "Nothing, if the computer's mail client is the right one. Otherwise ask the administrator to "
     "set (Default) of HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail to the user's client."},
    {"D20", "A MAPI library lies beside the tool",
     "Where the tool looks for mapi32.dll or mapistub.dll by its name alone, it takes this file "
     "and not the one of Windows.",
     "The file lies in the doctor's folder, where the tool is expected too. It does not belong to "
     "the tool.",
     "Move the file that the finding names out of this folder, then run the doctor again."},
    {"D21", "A MAPI library lies in an unusual place",
     "Another file than is meant may be loaded: Windows looks for a path that is not a full one in "
     "several folders, and what lies among the user's own files can be replaced by any program.",
     "The registered path is not a full one, or it leads into the user's profile or a folder for "
     "temporary files.",
     "Ask the administrator whether this file belongs to the mail client. If not, repair the mail "
     "client, or write the full path of its library, as a rule below C:\\Program Files, into the "
     "value that the finding names."},
    {"D22", "No default mail profile is registered for this user",
     "The mail client may ask which profile to use, in a window of its own, while the tool waits.",
     "The mail client may never have been set up for this Windows user, may be set to ask for a "
     "profile, or may keep its profiles where the doctor does not look.",
     "Open the Control Panel, Mail, \"Show Profiles\", choose \"Always use this profile\" and pick "
     "the user's. Where there is none, start the mail client once as this user and set it up."},
    {"D23", "The new Outlook without MAPI is switched on",
     "The new Outlook cannot be reached through MAPI. Jobs may go to the classic Outlook, unseen "
     "by the user, or fail.",
     "The value UseNewOutlook in HKEY_CURRENT_USER\\Software\\Microsoft\\Office\\16.0\\Outlook"
     "\\Preferences is not 0. The switch \"New Outlook\" at the top right of the window sets it.",
     "Switch \"New Outlook\" off or choose Help, \"Go to classic Outlook\". Then start "
     "the classic Outlook and send again."},
    {"D24", "The doctor runs with administrator rights",
     "A tool that is started in this way cannot share the session of a mail client that was "
     "started as usual. The logon may fail, or a second mail client may start.",
     "The doctor, or what started it, was opened with \"Run as administrator\". Under Wine and as "
     "root on Linux this is always so.",
     "Start the doctor as the user does, without \"Run as administrator\". If the fax application "
     "runs with administrator rights as well, start it as usual and send again."},
    {"D25", "The first file of the line cannot be read",
     "The tool does not get what is in the job file or document. It goes on without: the job can "
     "count as delivered, and its document arrives nowhere.",
     "The file is missing, open in another program, a folder, or closed to this user. The finding "
     "has the system's own message.",
     "Check the path in the finding letter by letter; a path with blanks must stand in double "
     "quotes. Close other programs that have the file open, then send again."},
    {"D26", "The job file is not valid JSON",
     "The tool takes the job file for the document, and does not read the number and texts in it. "
     "The add-in is told to send it; a message directly through the mail client gets it as its "
     "attachment, and the job file is then deleted.",
     "There is a mistake in the JSON at the line and column that the finding names. Usual ones: a "
     "comma too many or missing, a missing quotation mark, a single backslash in a path.",
     "Open the file in a text editor, go to that line, and correct the mistake. In a path each "
     "backslash stands twice: \"C:\\\\Fax\\\\a.pdf\". If a program writes the file, tell its "
     "maker."},
    {"D27", "The JSON file names no document",
     "The job has no document, no number and no texts. Through the add-in it counts as delivered "
     "all the same; directly through the mail client it fails.",
     "The file is no JSON object, or FilePath or SourceFileName is missing or not a text. Both "
     "must stand at the top, outside of Cmd.",
     "Put both in as texts in quotation marks: FilePath with the document's full path, and "
     "SourceFileName with the name that the recipient should see. Then send again."},
    {"D28", "An entry of the job file has no effect",
     "The tool does not read this entry, and the job goes out without what it says.",
     "The name is misspelt, stands in the wrong place or a second time, or the value is not a text "
     "in quotation marks. Receiver must be a list of texts.",
     "Correct the entry that the finding names: long names such as Subject stand in Cmd, "
     "Parameters; single letters in Cmd, Commands; Receiver in Cmd. Write \"9600\", not 9600, and "
     "[\"0301234567\"] for Receiver."},
    {"D29", "Something is wrong with the document",
     "The document may be missing from the message although the job counts as delivered, or the "
     "job may fail. A read-only one stays where it is after it was sent, and an empty one arrives "
     "empty.",
     "The finding says which: missing, open in another program, no ordinary file, too large, "
     "read-only, empty, or named without its full path. 4 GiB or more cannot be sent directly "
     "through the mail client.",
     "Check the path in the finding and the file itself: it must be there, open in no other "
     "program, and readable for this user. Write the full path with its drive into FilePath."},
    {"D30", "A text would arrive changed or not at all",
     "The named field of the job arrives empty or with other characters. The finding shows the "
     "text before and after.",
     "Some texts cannot be converted for the add-in: most of those in Chinese or Japanese, for "
     "example, or those that look as if they had been converted before. In the line, each "
     "apostrophe and quotation mark is removed.",
     "Write the field with other characters. Where a path lost an apostrophe or quotation mark, "
     "rename the file or folder without it, or name the document in a job file."},
    {"D31", "The line does not say what it seems to say",
     "Parts of the line count as something else or not at all: a number may get lost, a text may "
     "break off.",
     "There is a blank inside the fax command, there are two blanks in a row, a quotation mark or "
     "apostrophe is never closed, or an option has no effect. Only /filename and /attdisplayname "
     "have one.",
     "Put one blank between the parts, and double quotes around each part that has blanks, for "
     "example: zentpost C:\\Fax\\a.pdf \"0301234567;SMy invoice\"."},
    {"D32", "The job file cannot be written back",
     "The outcome does not get into the job file. The job itself goes on, but the fax application "
     "finds no Result.",
     "The file is read-only, or this user may not change it.",
     "Take \"Read-only\" off in the Properties of the job file, or let this user change it on the "
     "tab \"Security\". Then send again."},
    {"D33", "The job goes into a file, not to a recipient",
     "The field O diverts the job: it is written into the file that O names, counts as delivered, "
     "and nobody gets it. Nothing is written where O names the document or the job file.",
     "O stands in Cmd, Commands of the job file, or as ;O in the fax command of the line.",
     "Take O out of the job file or the fax command, then send again. To look at the diverted job, "
     "open the file; a name without a folder is in the user's folder for temporary files, %TMP%."},
    {"D34", "The job would count as delivered without being so",
     "The tool would end with exit code 0 and write success into the job file, although nobody "
     "gets the job, or not with its document.",
     "The finding names the reason. As a rule another error in the report has the details.",
     "Follow the other errors in the report from the top. Run the doctor once more with the same "
     "line, and send when D34 is gone."},
    {"D35", "The mail client would show a window of its own",
     "The job waits for the user: the message is shown and not sent by itself, or the mail client "
     "asks for a profile.",
     "The job asks for a preview (the field P or Preview), it has no fax number, or no default "
     "profile is registered (D22).",
     "Tell the user to look for the window on the taskbar, to complete it, and to send. To avoid "
     "it, give the job a number, take Preview out, or do what D22 says."},
};

constexpr char Upper(char letter) {
  return letter == 'd' ? 'D' : letter;
}

}  // namespace

std::span<const CodeText> CodeTexts() {
  return kCodeTexts;
}

const CodeText* FindCode(std::string_view code) {
  const CodeText* const row =
      std::find_if(std::begin(kCodeTexts), std::end(kCodeTexts), [code](const CodeText& text) {
        return std::equal(code.begin(), code.end(), text.code.begin(), text.code.end(),
                          [](char given, char known) { return Upper(given) == known; });
      });
  return row == std::end(kCodeTexts) ? nullptr : row;
}

std::string Explain(std::string_view code) {
  const CodeText* const text = FindCode(code);
  if (text == nullptr) {
    return {};
  }
  constexpr std::string_view kIndent = "         ";
  return support::Wrap(std::string(text->code).append(": ").append(text->title)) + "\n" +
         support::Wrap(text->meaning, "Meaning: ", kIndent) +
         support::Wrap(text->cause, "Cause:   ", kIndent) +
         support::Wrap(text->remedy, "Remedy:  ", kIndent);
}

}  // namespace zentpost::doctor
