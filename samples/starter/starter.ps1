# Hands one fax job to Zentpost and tells what became of it.
#
# NOT EXECUTED BY US: there is no PowerShell where Zentpost is built and tested. It says what
# starter.py and starter.cpp beside it say, which are. For Windows PowerShell 5.1 and PowerShell 7.
#
#   powershell -File starter.ps1 -Document C:\Fax\letter.pdf -To 0301234567 -Subject "Invoice 4711"
#
# Exit codes: 0 delivered, 1 not delivered, 2 nothing was started, 3 unclear.
[CmdletBinding()]
param(
    [string] $Tool,
    [string] $Document,
    [string] $To,
    [string] $Name,
    [string] $Recipient,
    [string] $Sender,
    [string] $Subject,
    [string] $Comment,
    [switch] $Preview,
    [string] $JobFolder,
    [switch] $FaxCommand
)
Set-StrictMode -Version 2
$ErrorActionPreference = 'Stop'

$Delivered, $NotDelivered, $NothingStarted, $Unclear = 0, 1, 2, 3

# What is not foreseen must not end with exit code 1, which means "not delivered".
$unforeseen = $NothingStarted
trap {
    [Console]::Error.WriteLine("starter: $($_.Exception.Message)")
    exit $unforeseen
}

# Nothing is started; one sentence says why.
function Stop-Refused([string] $Sentence) {
    [Console]::Error.WriteLine("starter: $Sentence")
    exit $NothingStarted
}

# A text arrives as it is, whatever it holds, but for these.
function Test-Text([string] $What, [string] $Text) {
    if ($Text.Contains([string] [char] 0)) {
        Stop-Refused "$What holds a zero character, at which the tool would end it"
    }
    try {
        [void] (New-Object Text.UTF8Encoding $false, $true).GetBytes($Text)
    } catch {
        Stop-Refused "$What is no Unicode text"
    }
}

# What no fax command can carry: it is taken apart at semicolons, and loses all quotes.
function Test-Field([string] $What, [string] $Text) {
    if ($Text -match '[;"'']|[\x00-\x1f\x7f-\x9f]|^ | $') {
        Stop-Refused ("$What holds a semicolon, a quote, an apostrophe, a control character or a blank at one of " +
            'its ends, which no fax command can carry: leave -FaxCommand out')
    }
}

# Where the Windows Installer has put the tool; the 64-bit one first.
function Get-InstalledTool {
    foreach ($view in 'Registry64', 'Registry32') {
        $machine = [Microsoft.Win32.RegistryKey]::OpenBaseKey('LocalMachine', $view)
        $key = $machine.OpenSubKey('Software\Sollvex\Zentpost')
        if ($null -ne $key) {
            $folder = $key.GetValue('InstallDir')
            if ($folder -is [string] -and $folder -ne '') {
                return [IO.Path]::Combine($folder, 'zentpost.exe')
            }
        }
    }
    Stop-Refused '-Tool is missing, and Zentpost is not installed'
}

# One that cannot be removed changes nothing about the outcome.
function Remove-JobFolder {
    Remove-Item -LiteralPath $folder -Recurse -ErrorAction SilentlyContinue
}

# The tool's Result, or nothing where it wrote none.
function Read-Result([string] $Path) {
    try {
        $result = ([IO.File]::ReadAllText($Path) | ConvertFrom-Json).Result
        $status, $code, $text = $result.Status, $result.ErrorCode, $result.ErrorText
    } catch {
        return $null
    }
    # PowerShell 7 reads whole numbers as [long].
    $integers = @(@($status, $code) | Where-Object {
        ($_ -is [int] -or $_ -is [long]) -and $_ -ge [int]::MinValue -and $_ -le [int]::MaxValue
    })
    if ($integers.Count -ne 2 -or $text -isnot [string]) {
        return $null
    }
    return $result
}

if ($Document -eq '') { Stop-Refused '-Document is missing' }
if ($To -eq '') { Stop-Refused '-To is missing' }
if ($JobFolder -eq '') { $JobFolder = [IO.Path]::GetTempPath() }
# A relative path means PowerShell's folder, which is not that of the process.
$paths = $ExecutionContext.SessionState.Path
$Document = $paths.GetUnresolvedProviderPathFromPSPath($Document)
$JobFolder = $paths.GetUnresolvedProviderPathFromPSPath($JobFolder)
try {
    [IO.File]::Open($Document, 'Open', 'Read', 'ReadWrite, Delete').Dispose()
} catch {
    Stop-Refused "the document cannot be read: $Document"
}
# The tool looks for ".pdf" in small letters, and appends it where there is none.
if ($Name -eq '') { $Name = [IO.Path]::GetFileName($Document) -replace '\.pdf$', '.pdf' }
if ($Tool -eq '') { $Tool = Get-InstalledTool }
$Tool = $paths.GetUnresolvedProviderPathFromPSPath($Tool)

# The fields: their names in the job file, their letters in a fax command, their texts. A single one stays a list.
$fields = @(@(
    @{ Name = 'RecipientName'; Letter = 'E'; Text = $Recipient }
    @{ Name = 'Comment'; Letter = 'K'; Text = $Comment }
    @{ Name = 'Preview'; Letter = 'P'; Text = $(if ($Preview) { '1' } else { '' }) }
    @{ Name = 'Subject'; Letter = 'S'; Text = $Subject }
    @{ Name = 'UserName'; Letter = 'U'; Text = $Sender }
) | Where-Object { $_.Text -ne '' })
Test-Text '-Document' $Document
Test-Text '-Name' $Name
Test-Text '-To' $To
foreach ($field in $fields) { Test-Text $field.Name $field.Text }

$job = [ordered] @{ FilePath = $Document; SourceFileName = $Name }
$command = $null
if ($FaxCommand) {
    Test-Field '-To' $To
    if ($To.StartsWith('/')) {
        Stop-Refused '-To begins with a slash, and would be taken for an option: leave -FaxCommand out'
    }
    foreach ($field in $fields) { Test-Field $field.Name $field.Text }
    $command = (@($To) + @($fields | ForEach-Object { $_.Letter + $_.Text })) -join ';'
} else {
    $parameters = [ordered] @{}
    foreach ($field in $fields) { $parameters[$field.Name] = $field.Text }
    $job['Cmd'] = [ordered] @{ Parameters = $parameters; Receiver = @($To) }
}

$folder = [IO.Path]::Combine($JobFolder, 'zentpost-job-' + [Guid]::NewGuid())
$jobFile = [IO.Path]::Combine($folder, 'job.json')
if ($jobFile -match '["'']') {
    Stop-Refused ("the job file's path holds a quote or an apostrophe, which the tool takes away: choose another " +
        "folder with -JobFolder: $jobFile")
}
Test-Text "the job file's path" $jobFile
if (-not [IO.Directory]::Exists($JobFolder)) { Stop-Refused "no folder can be made for the job: $JobFolder" }
try {
    [void] [IO.Directory]::CreateDirectory($folder)
    # In UTF-8 without a byte-order mark, and on the disk before anybody is told of it.
    $bytes = (New-Object Text.UTF8Encoding $false).GetBytes((ConvertTo-Json $job -Depth 4))
    $stream = [IO.File]::Open($jobFile, 'CreateNew', 'Write', 'None')
    try {
        $stream.Write($bytes, 0, $bytes.Length)
        $stream.Flush($true)
    } finally {
        $stream.Dispose()
    }
} catch {
    Remove-JobFolder
    Stop-Refused "the job file cannot be written: ${jobFile}: $($_.Exception.Message)"
}

# The line as it stands: the tool takes its words apart by rules of its own, and knows no backslash
# before a quote.
$start = New-Object Diagnostics.ProcessStartInfo
$start.FileName = $Tool
$start.Arguments = '"' + $jobFile + '"'
if ($null -ne $command) { $start.Arguments += ' "' + $command + '"' }
$start.UseShellExecute = $false
try {
    $process = [Diagnostics.Process]::Start($start)
} catch {
    Remove-JobFolder
    Stop-Refused "the tool cannot be started: ${Tool}: $($_.Exception.Message)"
}
$unforeseen = $Unclear
# No time-out: the mail client may be showing a window to the user, for as long as it likes.
if (-not $process.WaitForExit(60000)) {
    [Console]::Error.WriteLine('starter: still waiting; the mail client may be showing a window')
    $process.WaitForExit()
}

# Only two witnesses that agree settle the outcome.
$exitCode = $process.ExitCode
$result = Read-Result $jobFile
if ($exitCode -eq 0 -and $null -ne $result -and $result.Status -eq 0) {
    'delivered'
    Remove-JobFolder
    exit $Delivered
}
if ($exitCode -eq 1 -and $null -ne $result -and $result.Status -eq 1) {
    'not delivered: {0} (error code {1}, 0x{1:X8})' -f $result.ErrorText, [int] $result.ErrorCode
    $outcome = $NotDelivered
} else {
    $left = if ($null -ne $result) { "a Result with the status $($result.Status)" } else { 'no Result' }
    "unclear: the tool ended with exit code $exitCode and left $left"
    $outcome = $Unclear
}
# The doctor reads it.
"job file: $jobFile"
exit $outcome
