#include "net/Ftp.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>
#include <system_error>

#include "app/Log.h"
#include "app/Text.h"

namespace toverin {

namespace fs = std::filesystem;

namespace {

constexpr const char* kModule = "Cls_FTP";
constexpr int64_t kLargeBlock = 24576;
constexpr int64_t kSmallBlock = 256;
// Error number of a call made while no connection is open (WinInet's invalid handle).
constexpr int kNotConnected = 6;

struct EasyCleanup {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
using EasyHandle = std::unique_ptr<CURL, EasyCleanup>;

struct SlistFree {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using Slist = std::unique_ptr<curl_slist, SlistFree>;

struct FileClose {
    void operator()(FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileClose>;

void GlobalInitOnce() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)result;  // a failure shows again as curl_easy_init returning nothing
}

std::string ErrnoText(int error) {
    return std::error_code(error, std::generic_category()).message();
}

// With CURLFTPMETHOD_NOCWD libcurl hands the decoded URL path, less its first '/', to the server
// as it is. An absolute path therefore starts with an encoded slash; everything else that is not
// plainly safe in a URL is percent-encoded.
std::string UrlPath(const std::string& path) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < path.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(path[i]);
        bool plain =
            std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || (c == '/' && i > 0);
        if (plain) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

std::string WithTrailingSlash(std::string folder) {
    if (folder.empty() || folder.back() != '/') folder += '/';
    return folder;
}

// "host", "host:port", "[v6]:port", with or without "ftp://", to the connection's base URL.
bool ServerUrl(std::string server, std::string& url) {
    if (server.rfind("ftp://", 0) == 0) server.erase(0, 6);
    while (!server.empty() && server.back() == '/') server.pop_back();
    if (server.empty() || server.find_first_of("/@ \t\r\n") != std::string::npos) return false;
    url = "ftp://" + server;
    return true;
}

// The path of a "257" reply ("257 "/a ""quoted"" dir" is the current directory.").
bool ParsePwdReply(const std::string& replies, std::string& path) {
    size_t pos = replies.rfind("257 ");
    while (pos != std::string::npos && pos != 0 && replies[pos - 1] != '\n')
        pos = replies.rfind("257 ", pos - 1);
    if (pos == std::string::npos) return false;
    size_t open = replies.find('"', pos);
    size_t eol = replies.find('\n', pos);
    if (open == std::string::npos || open > eol) return false;
    std::string out;
    for (size_t i = open + 1; i < replies.size() && i < eol; ++i) {
        if (replies[i] != '"') {
            out += replies[i];
        } else if (i + 1 < eol && replies[i + 1] == '"') {
            out += '"';
            ++i;
        } else {
            path = out;
            return true;
        }
    }
    return false;
}

// Last server reply line whose code says failure, for the log's error text.
std::string LastFailureReply(const std::string& replies) {
    std::string found;
    for (std::string_view line : SplitLines(replies)) {
        if (line.size() >= 4 && (line[0] == '4' || line[0] == '5') &&
            std::isdigit(static_cast<unsigned char>(line[1])) &&
            std::isdigit(static_cast<unsigned char>(line[2])))
            found = line;
    }
    return found;
}

// A reply saying the server does not know the command (500, 502) or this use of it (504).
bool CommandNotKnown(const std::string& reply) {
    return StartsWith(reply, "500") || StartsWith(reply, "502") || StartsWith(reply, "504");
}

// The final reply lines ("213 ...") whose codes start with one of `codes`, in order.
std::vector<std::string> FinalReplies(const std::string& replies,
                                      std::initializer_list<const char*> codes) {
    std::vector<std::string> out;
    for (std::string_view line : SplitLines(replies)) {
        if (line.size() < 4 || line[3] != ' ') continue;
        for (const char* code : codes)
            if (StartsWith(line, code)) {
                out.emplace_back(line);
                break;
            }
    }
    return out;
}

// A 1xx reply: the server opened the data transfer, so the remote file was opened.
bool HasPreliminaryReply(const std::string& replies) {
    for (std::string_view line : SplitLines(replies))
        if (line.size() >= 4 && line[0] == '1' && line[3] == ' ') return true;
    return false;
}

size_t DiscardBody(char*, size_t size, size_t count, void*) {
    return size * count;
}

size_t CollectText(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

// Hands libcurl the file following the block plan: each call gives at most what is left of the
// current block, so no write ever spans two blocks.
struct UploadReader {
    FILE* file = nullptr;
    FtpBlockPlan plan;
    int64_t length = 0;
    int64_t sent = 0;
    int64_t doneInBlock = 0;
    bool inRemainder = false;
    int readError = 0;
    const std::function<void(int64_t)>* observer = nullptr;

    static size_t Read(char* buffer, size_t size, size_t count, void* self) {
        return static_cast<UploadReader*>(self)->Next(buffer, size * count);
    }

    size_t Next(char* buffer, size_t room) {
        if (sent >= length) return 0;
        inRemainder = sent >= plan.blockSize * plan.count;
        int64_t block = inRemainder ? plan.remainder : plan.blockSize;
        size_t want = static_cast<size_t>(std::min<int64_t>(block - doneInBlock, int64_t(room)));
        size_t got = std::fread(buffer, 1, want, file);
        if (got != want) {
            readError = std::ferror(file) ? errno : EIO;
            if (readError == 0) readError = EIO;
            return CURL_READFUNC_ABORT;
        }
        sent += static_cast<int64_t>(got);
        doneInBlock += static_cast<int64_t>(got);
        if (doneInBlock == block) {
            doneInBlock = 0;
            if (observer && *observer) (*observer)(block);
        }
        return got;
    }
};

struct DownloadWriter {
    FILE* file = nullptr;
    int64_t received = 0;
    int writeError = 0;

    static size_t Write(char* data, size_t size, size_t count, void* self) {
        auto* me = static_cast<DownloadWriter*>(self);
        size_t n = size * count;
        if (std::fwrite(data, 1, n, me->file) != n) {
            me->writeError = errno ? errno : EIO;
            return 0;
        }
        me->received += static_cast<int64_t>(n);
        return n;
    }
};

std::vector<std::string> SplitFolderAndName(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return {"", path};
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace

bool& FtpErrorFlag() {
    static bool flag = false;
    return flag;
}

FtpBlockPlan PlanUploadBlocks(int64_t length) {
    FtpBlockPlan plan;
    plan.blockSize = length > kLargeBlock ? kLargeBlock : kSmallBlock;
    plan.count = length / plan.blockSize;
    plan.remainder = length % plan.blockSize;
    return plan;
}

namespace {

Slist MakeQuote(const std::vector<std::string>& commands) {
    Slist list;
    for (const auto& command : commands) {
        curl_slist* grown = curl_slist_append(list.get(), command.c_str());
        if (!grown) return nullptr;
        (void)list.release();
        list.reset(grown);
    }
    return list;
}

bool HasLineBreak(const std::string& text) {
    return text.find_first_of("\r\n") != std::string::npos;
}

}  // namespace

struct cFTP::Session {
    EasyHandle easy;
    bool noMlsd = false;  // the server does not know MLSD (found out once per connection)
    bool noMdtm = false;
    std::string baseUrl;
    std::string user;
    std::string password;
    std::string replies;  // server replies of the last request
    char errorBuffer[CURL_ERROR_SIZE] = {};
};

struct cFTP::Request {
    std::string path;  // absolute remote path; a folder ends with '/'
    bool noBody = false;
    bool connecting = false;  // the login itself
    Slist quote;
    const char* listCommand = nullptr;
    bool transfer = false;  // a file's STOR or RETR
    Slist typeCommand;
    UploadReader* reader = nullptr;
    curl_write_callback write = nullptr;
    void* writeData = nullptr;
};

cFTP::cFTP() = default;

std::string FtpFailureText(int number) {
    switch (number) {
        case CURLE_COULDNT_RESOLVE_HOST:
            return "serveur inconnu (nom introuvable)";
        case CURLE_COULDNT_CONNECT:
            return "aucun serveur FTP ne répond à cette adresse";
        case CURLE_OPERATION_TIMEDOUT:
            return "le serveur ne répond pas (délai dépassé)";
        case CURLE_LOGIN_DENIED:
            return "identifiant ou mot de passe refusé";
        case CURLE_REMOTE_ACCESS_DENIED:
        case CURLE_QUOTE_ERROR:
            return "refusé par le serveur (dossier ou fichier absent, ou droits insuffisants)";
        case CURLE_FTP_ACCEPT_FAILED:
        case CURLE_FTP_ACCEPT_TIMEOUT:
        case CURLE_FTP_PORT_FAILED:
            return "le serveur n'a pas pu se connecter à ce poste (essayez le mode passif)";
        default:
            return "erreur " + std::to_string(number) + " (voir le journal du jour)";
    }
}

cFTP::~cFTP() {
    CloseConnection();
}

bool cFTP::IsOpenConnection() const {
    return session_ != nullptr;
}

void cFTP::SetTimeouts(std::chrono::seconds connect, std::chrono::seconds stall) {
    connectTimeout_ = connect;
    stallTimeout_ = stall;
}

void cFTP::SetLastError(int number, std::string text) {
    lastErrorNumber_ = number;
    lastErrorText_ = std::move(text);
}

std::string cFTP::CurlErrorText(int code, bool withBuffer) const {
    std::string text = curl_easy_strerror(static_cast<CURLcode>(code));
    if (!session_) return text;
    std::string detail = LastFailureReply(session_->replies);
    // libcurl keeps the first message of a request in the error buffer, and some are not fatal
    // (the active-mode address probing writes one on every transfer). Only while connecting is
    // the first message the one that tells why.
    if (detail.empty() && withBuffer) detail = session_->errorBuffer;
    while (!detail.empty() && (detail.back() == '\n' || detail.back() == '\r')) detail.pop_back();
    if (!detail.empty() && detail != text) text += " - " + detail;
    return text;
}

void cFTP::ErrorOut(std::string_view procedure) {
    lastErrorMessage_ = " |Sub: " + std::string(procedure) +
                        " Err: " + std::to_string(lastErrorNumber_) + " Message: " + lastErrorText_;
    TraceLog(lastErrorMessage_);
}

void cFTP::Fail(std::string_view procedure, const std::string& line, bool framed) {
    if (framed) {
        TraceLogEncadre(line, '=');
    } else {
        TraceLog(line);
    }
    ErrorOut(std::string(procedure) + ":" + kModule);
}

bool cFTP::RequireConnection() {
    if (session_) return true;
    SetLastError(kNotConnected, "Not connected");
    return false;
}

std::string cFTP::ErrorString() const {
    return std::to_string(lastErrorNumber_) + " " + lastErrorText_;
}

std::string cFTP::Resolve(const std::string& name) const {
    if (!name.empty() && name[0] == '/') return name;
    std::string base = directory_.empty() ? "/" : directory_;
    if (name.empty() || name == ".") return base;
    return WithTrailingSlash(base) + name;
}

int cFTP::Perform(Request& request) {
    CURL* h = session_->easy.get();
    // Reset keeps the live connection, so the login is not repeated; only options go back to
    // their defaults, and no option of one command leaks into the next.
    curl_easy_reset(h);
    session_->replies.clear();
    session_->errorBuffer[0] = '\0';
    std::string url = session_->baseUrl + "/" + UrlPath(request.path);
    curl_easy_setopt(h, CURLOPT_URL, url.c_str());
    curl_easy_setopt(h, CURLOPT_USERNAME, session_->user.c_str());
    curl_easy_setopt(h, CURLOPT_PASSWORD, session_->password.c_str());
    curl_easy_setopt(h, CURLOPT_USERAGENT, kAgentName);
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, session_->errorBuffer);
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT, static_cast<long>(connectTimeout_.count()));
    curl_easy_setopt(h, CURLOPT_ACCEPTTIMEOUT_MS,
                     static_cast<long>(connectTimeout_.count() * 1000));
    curl_easy_setopt(h, CURLOPT_SERVER_RESPONSE_TIMEOUT, static_cast<long>(stallTimeout_.count()));
    curl_easy_setopt(h, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(h, CURLOPT_LOW_SPEED_TIME, static_cast<long>(stallTimeout_.count()));
    // Absolute paths and no CWD: the server's own current directory never matters, so a
    // directory change cannot get out of step with libcurl's idea of where it is.
    curl_easy_setopt(h, CURLOPT_FTP_FILEMETHOD, static_cast<long>(CURLFTPMETHOD_NOCWD));
    curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, CollectText);
    curl_easy_setopt(h, CURLOPT_HEADERDATA, &session_->replies);
    // "-": the address of the control connection, which the server can reach back.
    curl_easy_setopt(h, CURLOPT_FTPPORT, connectionMode_ == kModePassive ? nullptr : "-");
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, request.write ? request.write : DiscardBody);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, request.writeData);
    if (request.noBody) curl_easy_setopt(h, CURLOPT_NOBODY, 1L);
    if (request.quote) curl_easy_setopt(h, CURLOPT_QUOTE, request.quote.get());
    if (request.listCommand) curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, request.listCommand);
    if (request.transfer) {
        // The transfer type goes as a TYPE command of our own, sent right before STOR or RETR.
        // libcurl's text mode would also rewrite line ends itself (LF to CRLF going out, without
        // looking at the CRs already there, and CRLF to LF coming in), so a Windows text file
        // would reach the server as CR CR LF. The server converts, as FTP means it to.
        request.typeCommand = MakeQuote({transferType_ == kTransferAscii ? "TYPE A" : "TYPE I"});
        curl_easy_setopt(h, CURLOPT_PREQUOTE, request.typeCommand.get());
    }
    if (request.write == DownloadWriter::Write && transferType_ == kTransferAscii) {
        // A size asked beforehand is the stored size; an ASCII transfer may be longer. A binary
        // one must be exactly that long: one that ends short is a failure.
        curl_easy_setopt(h, CURLOPT_IGNORE_CONTENT_LENGTH, 1L);
    }
    if (request.reader) {
        curl_easy_setopt(h, CURLOPT_UPLOAD, 1L);
        // Room for a whole large block in every read.
        curl_easy_setopt(h, CURLOPT_UPLOAD_BUFFERSIZE, 65536L);
        curl_easy_setopt(h, CURLOPT_READFUNCTION, UploadReader::Read);
        curl_easy_setopt(h, CURLOPT_READDATA, request.reader);
        curl_easy_setopt(h, CURLOPT_INFILESIZE_LARGE,
                         static_cast<curl_off_t>(request.reader->length));
    }
    CURLcode result = curl_easy_perform(h);
    if (result != CURLE_OK) SetLastError(result, CurlErrorText(result, request.connecting));
    return result;
}

bool cFTP::OpenConnection(const std::string& server, const std::string& user,
                          const std::string& password) {
    if (IsOpenConnection()) CloseConnection();
    // No dial-up step: the machine's network is up or it is not, and connecting tells.
    GlobalInitOnce();
    auto session = std::make_unique<Session>();
    session->easy.reset(curl_easy_init());
    if (!session->easy) {
        SetLastError(CURLE_FAILED_INIT, curl_easy_strerror(CURLE_FAILED_INIT));
        Fail("OpenConnection", "Err: FTP: InternetOpen (" + ErrorString() + ")", true);
        FtpErrorFlag() = true;
        return false;
    }
    session->user = user;
    session->password = password;
    session_ = std::move(session);
    int result = CURLE_URL_MALFORMAT;
    if (ServerUrl(server, session_->baseUrl)) {
        // Logging in with nothing to transfer: the control connection stays open in the handle.
        Request login;
        login.path = "/";
        login.noBody = true;
        login.connecting = true;
        result = Perform(login);
    } else {
        SetLastError(result,
                     std::string(curl_easy_strerror(CURLE_URL_MALFORMAT)) + " - '" + server + "'");
    }
    if (result != CURLE_OK) {
        session_.reset();
        Fail("OpenConnection", "Err: FTP: InternetConnect (" + ErrorString() + ")", true);
        FtpErrorFlag() = true;
        return false;
    }
    char* entry = nullptr;
    curl_easy_getinfo(session_->easy.get(), CURLINFO_FTP_ENTRY_PATH, &entry);
    directory_ = entry && *entry ? entry : "/";
    return true;
}

void cFTP::CloseConnection() {
    session_.reset();  // the handle's cleanup says QUIT and closes the connection
    directory_.clear();
}

// One command on a remote name (RMD, DELE), sent as a quote on the control connection.
bool cFTP::RemoteCommand(const std::string& command, const std::string& name) {
    if (!RequireConnection()) return false;
    if (HasLineBreak(name)) {
        SetLastError(CURLE_URL_MALFORMAT, curl_easy_strerror(CURLE_URL_MALFORMAT));
        return false;
    }
    Request request;
    request.path = "/";
    request.noBody = true;
    request.quote = MakeQuote({command + " " + Resolve(name)});
    return Perform(request) == CURLE_OK;
}

bool cFTP::RemoveFTPDirectory(const std::string& name) {
    bool ok = RemoteCommand("RMD", name);
    if (!ok)
        Fail("RemoveFTPDirectory",
             "Err: FTP: RemoveFTPDirectory (" + ErrorString() + ") '" + name + "'");
    return ok;
}

bool cFTP::DeleteFTPFile(const std::string& name) {
    bool ok = RemoteCommand("DELE", name);
    if (!ok) {
        Fail("DeleteFTPFile", "Err: FTP: DeleteFTPFile '" + name + "' (" + ErrorString() + ")");
        return false;
    }
    TraceLog("FTP: DeleteFTPFile Ok");
    return true;
}

bool cFTP::FTPUploadFile(const std::string& localPath, const std::string& remoteName) {
    if (!RequireConnection()) {
        Fail("FTPUploadFile",
             "Err: FTP: FtpOpenFile:PutFile: '" + remoteName + "' (" + ErrorString() + ")");
        return false;
    }
    // The local file is opened before the remote one: a missing local file must not leave an
    // empty file behind on the server.
    File local(std::fopen(localPath.c_str(), "rb"));
    std::error_code sizeError;
    auto length = local ? fs::file_size(localPath, sizeError) : 0;
    if (!local || sizeError) {
        int e = local ? sizeError.value() : errno;
        SetLastError(e, ErrnoText(e));
        Fail("FTPUploadFile",
             "Err: FTP: FTPUploadFile '" + localPath + "' (" + ErrorString() + ")");
        return false;
    }
    UploadReader reader;
    reader.file = local.get();
    reader.length = static_cast<int64_t>(length);
    reader.plan = PlanUploadBlocks(reader.length);
    reader.observer = &blockObserver_;
    Request request;
    request.path = Resolve(remoteName);
    request.transfer = true;
    request.reader = &reader;
    if (Perform(request) == CURLE_OK) return true;

    if (reader.readError) {
        SetLastError(reader.readError, ErrnoText(reader.readError));
        Fail("FTPUploadFile",
             "Err: FTP: FTPUploadFile '" + localPath + "' (" + ErrorString() + ")");
    } else if (!HasPreliminaryReply(session_->replies)) {
        Fail("FTPUploadFile",
             "Err: FTP: FtpOpenFile:PutFile: '" + remoteName + "' (" + ErrorString() + ")");
    } else {
        // The write that failed is the block being handed over when the transfer broke.
        Fail("FTPUploadFile", std::string("Err: FTP: InternetWriteFile/") +
                                  (reader.inRemainder ? "2" : "1") + " (" + ErrorString() + ")");
    }
    return false;
}

bool cFTP::FTPDownloadFile(const std::string& remoteName, const std::string& localPath) {
    auto openFailed = [&] {
        Fail("FTPDownloadFile",
             "Err: FTP: FtpOpenFile:GetFile: '" + remoteName + "' (" + ErrorString() + ")");
        return false;
    };
    if (!RequireConnection()) return openFailed();
    std::error_code ec;
    bool existed = fs::exists(localPath, ec);
    File local(std::fopen(localPath.c_str(), "ab"));
    if (!local) {
        SetLastError(errno, ErrnoText(errno));
        Fail("FTPDownloadFile",
             "Err: FTP: FTPDownloadFile '" + localPath + "' (" + ErrorString() + ")");
        return false;
    }
    DownloadWriter writer;
    writer.file = local.get();
    Request request;
    request.path = Resolve(remoteName);
    request.transfer = true;
    request.write = DownloadWriter::Write;
    request.writeData = &writer;
    int result = Perform(request);
    if (result == CURLE_OK && std::fflush(local.get()) != 0) {
        writer.writeError = errno ? errno : EIO;
        result = CURLE_WRITE_ERROR;
    }
    if (result == CURLE_OK) return true;

    if (writer.writeError) {
        SetLastError(writer.writeError, ErrnoText(writer.writeError));
        Fail("FTPDownloadFile",
             "Err: FTP: FTPDownloadFile '" + localPath + "' (" + ErrorString() + ")");
        return false;
    }
    if (!HasPreliminaryReply(session_->replies)) {
        // Nothing came: a local file that this call created would only mislead.
        local.reset();
        if (!existed) fs::remove(localPath, ec);
        return openFailed();
    }
    // Read in blocks of 256 bytes and then the rest: a failure once every whole block has come
    // is one on the last part.
    curl_off_t expected = -1;
    curl_easy_getinfo(session_->easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &expected);
    const bool lastPart = expected >= 0 && writer.received >= expected - expected % kSmallBlock;
    Fail("FTPDownloadFile", std::string("Err: FTP: InternetReadFile") + (lastPart ? "2" : "") +
                                " (" + ErrorString() + ")");
    return false;
}

std::string cFTP::GetFTPDirectory() {
    bool ok = RequireConnection();
    std::string path;
    if (ok) {
        Request request;
        request.path = "/";
        request.noBody = true;
        request.quote = MakeQuote({"PWD"});
        ok = Perform(request) == CURLE_OK;
        if (ok && !ParsePwdReply(session_->replies, path)) {
            SetLastError(CURLE_WEIRD_SERVER_REPLY, curl_easy_strerror(CURLE_WEIRD_SERVER_REPLY));
            ok = false;
        }
    }
    if (!ok) {
        Fail("GetFTPDirectory", "Err: FTP: FtpGetCurrentDirectory (" + ErrorString() + ")");
        return {};
    }
    directory_ = path;
    return path;
}

bool cFTP::SetFTPDirectory(const std::string& name) {
    bool ok = RequireConnection();
    if (ok && HasLineBreak(name)) {
        SetLastError(CURLE_URL_MALFORMAT, curl_easy_strerror(CURLE_URL_MALFORMAT));
        ok = false;
    }
    std::string path;
    if (ok) {
        // The server checks the folder and gives its own spelling of where we are now.
        Request request;
        request.path = "/";
        request.noBody = true;
        request.quote = MakeQuote({"CWD " + Resolve(name), "PWD"});
        ok = Perform(request) == CURLE_OK;
        if (ok && !ParsePwdReply(session_->replies, path)) path = Resolve(name);
    }
    if (!ok) {
        Fail("SetFTPDirectory",
             "Err: FTP: FtpSetCurrentDirectory '" + name + "' (" + ErrorString() + ")");
        return false;
    }
    directory_ = path;
    TraceLog("FtpSetCurrentDirectory Ok: '" + name);
    return true;
}

bool cFTP::List(const std::string& folder, std::vector<FtpDirEntry>& entries, bool& partial) {
    std::string listing;
    auto run = [&](const char* command) {
        listing.clear();
        Request request;
        request.path = WithTrailingSlash(folder);
        request.listCommand = command;
        request.write = CollectText;
        request.writeData = &listing;
        return Perform(request) == CURLE_OK;
    };
    bool ok = false;
    if (!session_->noMlsd) {
        ok = run("MLSD");
        if (ok) entries = ParseMlsdListing(listing);
        if (ok || !listing.empty() || !CommandNotKnown(LastFailureReply(session_->replies))) {
            partial = !listing.empty();
            return ok;
        }
        // A server without MLSD (vsftpd, many older ones): its LIST lines from now on.
        session_->noMlsd = true;
        TraceLog("FTP: The server has no MLSD: LIST from now on");
    }
    ok = run("LIST");
    partial = !listing.empty();
    if (!ok) return false;
    if (listing.empty()) {
        // LIST names a folder that is not there as an empty one (vsftpd): the folder is asked
        // for. The server's own current folder never matters here, every path being absolute.
        std::string reply;
        if (!Ask("CWD " + folder, reply)) return false;
        if (!StartsWith(reply, "2")) {
            SetLastError(
                CURLE_REMOTE_FILE_NOT_FOUND,
                std::string(curl_easy_strerror(CURLE_REMOTE_FILE_NOT_FOUND)) + " - " + reply);
            return false;
        }
    }
    entries = ParseListListing(listing, AppClock().Now());
    ExactDates(folder, entries);
    return true;
}

void cFTP::ExactDates(const std::string& folder, std::vector<FtpDirEntry>& entries) {
    // LIST gives the server's clock to the minute, without the year for recent files: MDTM gives
    // each file's date to the second, in UTC. Asked together, each command ignored when it fails.
    if (session_->noMdtm) return;
    std::vector<std::string> commands;
    std::vector<FtpDirEntry*> files;
    for (auto& entry : entries) {
        if (entry.isDirectory || HasLineBreak(entry.name)) continue;
        commands.push_back("*MDTM " + WithTrailingSlash(folder) + entry.name);
        files.push_back(&entry);
    }
    if (commands.empty()) return;
    Request request;
    request.path = "/";
    request.noBody = true;
    request.quote = MakeQuote(commands);
    if (Perform(request) != CURLE_OK) return;
    std::vector<std::string> answers = FinalReplies(session_->replies, {"213", "4", "5"});
    if (answers.size() < files.size()) return;
    answers.erase(answers.begin(), answers.end() - static_cast<long>(files.size()));
    if (CommandNotKnown(answers.front())) {
        session_->noMdtm = true;
        return;
    }
    for (size_t i = 0; i < files.size(); ++i)
        if (StartsWith(answers[i], "213 "))
            ParseFtpTime(Trim(answers[i].substr(4)), files[i]->date);
}

std::optional<int64_t> cFTP::FileSize(const std::string& path, bool& partial) {
    const auto parts = SplitFolderAndName(path);
    std::vector<FtpDirEntry> entries;
    if (!session_->noMlsd) {
        // Finds out on the way whether the server knows MLSD.
        if (!List(parts[0], entries, partial)) return std::nullopt;
        return SizeIn(entries, parts[1]);
    }
    // Without MLSD: the server's SIZE, in binary as some servers require it; LIST when it has no
    // SIZE either.
    std::string reply;
    if (!Ask("TYPE I", reply) || !Ask("SIZE " + path, reply)) return std::nullopt;
    if (StartsWith(reply, "213 ")) return std::strtoll(reply.c_str() + 4, nullptr, 10);
    if (CommandNotKnown(reply)) {
        if (!List(parts[0], entries, partial)) return std::nullopt;
        return SizeIn(entries, parts[1]);
    }
    // "550": no such file, as a listing would have said.
    SetLastError(CURLE_REMOTE_FILE_NOT_FOUND,
                 std::string(curl_easy_strerror(CURLE_REMOTE_FILE_NOT_FOUND)) + " - " + reply);
    return std::nullopt;
}

std::optional<int64_t> cFTP::SizeIn(const std::vector<FtpDirEntry>& entries,
                                    const std::string& name) {
    for (const auto& entry : entries)
        if (entry.name == name && !entry.isDirectory) return entry.size;
    SetLastError(CURLE_REMOTE_FILE_NOT_FOUND, curl_easy_strerror(CURLE_REMOTE_FILE_NOT_FOUND));
    return std::nullopt;
}

bool cFTP::Ask(const std::string& command, std::string& reply) {
    // "*": libcurl lets the command fail without giving up the control connection, as it does
    // after any command it sees fail; the reply says how it went.
    Request request;
    request.path = "/";
    request.noBody = true;
    request.quote = MakeQuote({"*" + command});
    if (Perform(request) != CURLE_OK) return false;
    std::vector<std::string> answers = FinalReplies(session_->replies, {"1", "2", "3", "4", "5"});
    reply = answers.empty() ? std::string() : answers.back();
    return true;
}

int64_t cFTP::GetFTPFileSize(const std::string& name) {
    bool partial = false;
    std::optional<int64_t> size;
    if (RequireConnection()) {
        if (HasLineBreak(name)) {
            SetLastError(CURLE_URL_MALFORMAT, curl_easy_strerror(CURLE_URL_MALFORMAT));
        } else {
            size = FileSize(Resolve(name), partial);
        }
    }
    if (size) return *size;
    if (partial && lastErrorNumber_ != CURLE_REMOTE_FILE_NOT_FOUND) {
        // Part of the listing came before the failure: the first entry was found, a later not.
        Fail("GetFTPFileSize", "Err: FTP: InternetFindNextFile (" + ErrorString() + ")");
    } else {
        Fail("GetFTPFileSize",
             "Err: FTP: FtpFindFirstFile (GetFTPFileSize)(" + ErrorString() + ") '" + name + "'");
    }
    return -1;
}

std::vector<FtpDirEntry> cFTP::GetDirectoryListing(const std::string& pattern) {
    std::string folder = directory_.empty() ? "/" : directory_;
    std::string namePattern = pattern;
    if (pattern.find('/') != std::string::npos) {
        auto parts = SplitFolderAndName(Resolve(pattern));
        folder = parts[0];
        namePattern = parts[1];
    }
    bool ok = RequireConnection();
    bool partial = false;
    std::vector<FtpDirEntry> all;
    if (ok) ok = List(folder, all, partial);
    if (!ok) {
        std::string error = ErrorString();
        Fail("GetDirectoryListing",
             partial ? "Err: FTP: InternetFindNextFile (" + error + ")"
                     : "Err: FTP: FtpFindFirstFile (GetDirectoryListing) (" + error + ")");
        return {};
    }
    std::vector<FtpDirEntry> entries;
    for (auto& entry : all)
        if (FtpNameMatches(namePattern, entry.name)) entries.push_back(std::move(entry));
    return entries;
}

}  // namespace toverin
