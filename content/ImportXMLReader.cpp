#include "content/ImportXMLReader.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

#include "app/Errors.h"
#include "app/Text.h"

namespace toverin {

namespace {

std::string N(long value) {
    return std::to_string(value);
}

std::string NotTheFormat(const std::string& why) {
    return "Le fichier n'est pas au format XML de Kavella: " + why;
}

// The declaration as the suite writes it, or with no blank before "?>".
bool IsDeclaration(std::string_view line, std::string& encoding) {
    std::string text = Trim(line);
    if (text == EnteteFichierXML()) return true;
    if (!StartsWith(text, "<?xml ") || !EndsWith(text, "?>")) return false;
    size_t at = text.find("encoding=\"");
    if (at == std::string::npos) return false;
    size_t end = text.find('"', at + 10);
    encoding = text.substr(at + 10, end == std::string::npos ? 0 : end - at - 10);
    return EqualsIgnoreCase(encoding, "ISO-8859-1") &&
           text.find("version=\"1.0\"") != std::string::npos;
}

// The first byte of the line the suite's files never hold: control characters other than the
// tab. Bytes from 0x80 are letters (the Windows-1252 ones included).
size_t FirstInvalidByte(std::string_view line) {
    // Every byte of a delivery passes here: eight at a time, each word whose bytes are all
    // printable (at least 0x20, not 0x7F) let through at once, the rest looked at byte by byte.
    constexpr uint64_t kOnes = 0x0101010101010101ULL, kHighs = 0x8080808080808080ULL;
    size_t i = 0;
    for (; i + 8 <= line.size(); i += 8) {
        uint64_t w;
        std::memcpy(&w, line.data() + i, 8);
        const uint64_t below = (w - kOnes * 0x20) & ~w & kHighs;  // a byte under 0x20
        const uint64_t x = w ^ (kOnes * 0x7F);
        const uint64_t del = (x - kOnes) & ~x & kHighs;  // a byte 0x7F
        if (!(below | del)) continue;
        for (size_t k = i; k < i + 8; ++k) {  // a tab, or a byte to refuse
            auto c = static_cast<unsigned char>(line[k]);
            if ((c < 0x20 && c != '\t') || c == 0x7F) return k;
        }
    }
    for (; i < line.size(); ++i) {
        auto c = static_cast<unsigned char>(line[i]);
        if ((c < 0x20 && c != '\t') || c == 0x7F) return i;
    }
    return std::string_view::npos;
}

std::string InvalidByteMessage(std::string_view line, size_t at, long lineNumber) {
    char code[8];
    std::snprintf(code, sizeof code, "0x%02X", static_cast<unsigned char>(line[at]));
    return "Caractère invalide (code " + std::string(code) + ") à la ligne " + N(lineNumber) +
           ", colonne " + N(static_cast<long>(at) + 1) + ".";
}

// The name of a tag at the start of `text` ("<KV3_Customer>" gives "KV3_Customer").
std::string TagName(std::string_view text, size_t skip) {
    size_t end = skip;
    while (end < text.size() && text[end] != '>' && text[end] != ' ' && text[end] != '/') ++end;
    return std::string(text.substr(skip, end - skip));
}

// The line-by-line state of the envelope.
class EnvelopeReader {
  public:
    EnvelopeReader(XmlDeliveryVisitor& visitor, bool checkBytes)
        : visitor_(visitor), checkBytes_(checkBytes) {}

    // One line without its end; false when the reading must end (result_ says why).
    bool Line(std::string_view line) {
        const long n = ++result_.lines;
        if (n == 1 && StartsWith(line, "\xEF\xBB\xBF")) line.remove_prefix(3);
        if (state_ == State::Declaration) {
            std::string encoding;
            if (!IsDeclaration(line, encoding)) {
                return Fail(
                    encoding.empty()
                        ? NotTheFormat("la première ligne doit être " + EnteteFichierXML() + ".")
                        : NotTheFormat("il est déclaré en " + encoding + " et non en ISO-8859-1."),
                    n);
            }
            state_ = State::Root;
            return true;
        }
        if (checkBytes_) {
            if (size_t bad = FirstInvalidByte(line); bad != std::string_view::npos)
                return Fail(InvalidByteMessage(line, bad, n), n);
        }
        std::string_view text = TrimView(line);
        if (text.empty()) return true;
        switch (state_) {
            case State::Declaration:
                break;
            case State::Root:
                if (text != kRootOpen)
                    return Fail(NotTheFormat("la balise <KV3> manque à la ligne " + N(n) + "."), n);
                state_ = State::Body;
                return true;
            case State::Body:
                return BodyLine(text, n);
            case State::Section:
                return SectionLine(line, text, n);
            case State::Ended:
                return Fail("Contenu après </KV3> à la ligne " + N(n) + ".", n);
        }
        return true;
    }

    // The end of the file.
    XmlReadResult Finish() {
        if (failed_ || result_.stopped) return result_;
        switch (state_) {
            case State::Declaration:
                Fail("Le fichier est vide.", 0);
                break;
            case State::Root:
                Fail(NotTheFormat("la balise <KV3> manque."), 0);
                break;
            case State::Body:
                Fail("Le fichier est incomplet (tronqué ?): la balise </KV3> manque à la fin.", 0);
                break;
            case State::Section:
                Fail("Le fichier est incomplet (tronqué ?): la section <" +
                         std::string(section_->element) + "> ouverte à la ligne " +
                         N(sectionLine_) + " n'est pas fermée.",
                     0);
                break;
            case State::Ended:
                result_.ok = true;
                break;
        }
        return result_;
    }

    // A line longer than any the suite writes: it is not read at all.
    void LineTooLong() {
        const long n = ++result_.lines;
        Fail("La ligne " + N(n) + " dépasse " + std::to_string(kImportXMLMaxLine) +
                 " caractères: ce n'est pas une ligne d'un fichier XML de Kavella.",
             n);
    }

    bool Fail(const std::string& message, long line) {
        failed_ = true;
        result_.ok = false;
        result_.message = message;
        result_.errorLine = line;
        return false;
    }

  private:
    enum class State { Declaration, Root, Body, Section, Ended };

    static std::string_view TrimView(std::string_view s) {
        while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
        while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
        return s;
    }

    bool BodyLine(std::string_view text, long n) {
        if (text == kRootClose) {
            state_ = State::Ended;
            return true;
        }
        if (StartsWith(text, "<KV3_")) {
            const std::string name = TagName(text, 1);
            const XmlSectionInfo* section = SectionByElement(name);
            if (!section)
                return Fail("Section inconnue <" + name + "> à la ligne " + N(n) + ".", n);
            state_ = State::Section;
            section_ = section;
            sectionLine_ = n;
            sectionClose_ = "</" + std::string(section->element) + ">";
            itemClose_ = "</" + std::string(section->item) + ">";
            return true;
        }
        if (StartsWith(text, "</KV3_"))
            return Fail("Balise </" + TagName(text, 2) + "> inattendue à la ligne " + N(n) +
                            ": aucune section n'est ouverte.",
                        n);
        Ignore(n, "ligne hors de toute section");
        return true;
    }

    bool SectionLine(std::string_view line, std::string_view text, long n) {
        const std::string element = section_->element;
        if (text == sectionClose_) {
            state_ = State::Body;
            section_ = nullptr;
            return true;
        }
        if (StartsWith(text, "<KV3_") || StartsWith(text, "</KV3_") || text == kRootClose) {
            const bool closing = text[1] == '/';
            const std::string name = closing && text != kRootClose ? TagName(text, 2)
                                     : closing                     ? "KV3"
                                                                   : TagName(text, 1);
            if (!closing && !SectionByElement(name))
                return Fail("Section inconnue <" + name + "> à la ligne " + N(n) + ".", n);
            return Fail("La section <" + element + "> ouverte à la ligne " + N(sectionLine_) +
                            " n'est pas fermée: la ligne " + N(n) + " porte <" +
                            (closing ? "/" : "") + name + ">.",
                        n);
        }
        const std::string_view item = section_->item;
        const bool opens = ImportXMLOuvertureItem(line, item) != std::string_view::npos;
        // The closing tag ends a record line: looked for from the end, it is found at once.
        const bool closes = line.rfind(itemClose_) != std::string_view::npos;
        if (opens && closes) {
            const XmlElements elements(line, item, visitor_.WantsElements());
            if (!elements.Probleme().empty())
                return Fail(elements.Probleme() + " à la ligne " + N(n) + ".", n);
            ++result_.records;
            if (!visitor_.Record(*section_, n, line, elements)) {
                result_.stopped = true;
                return false;
            }
            return true;
        }
        Ignore(n, opens || closes ? "enregistrement coupé sur plusieurs lignes"
                                  : "ligne hors enregistrement");
        return true;
    }

    void Ignore(long n, const std::string& reason) {
        ++result_.ignored;
        visitor_.Ignored(n, reason);
    }

    XmlDeliveryVisitor& visitor_;
    bool checkBytes_;
    XmlReadResult result_;
    State state_ = State::Declaration;
    const XmlSectionInfo* section_ = nullptr;
    long sectionLine_ = 0;
    std::string sectionClose_;  // "</KV3_Customer>"
    std::string itemClose_;     // "</Customer>"
    bool failed_ = false;
};

}  // namespace

std::string ImportXMLVerifieLigne(std::string_view line, std::string_view item, long lineNumber) {
    const XmlElements elements(line, item, false);
    return elements.Probleme().empty() ? ""
                                       : elements.Probleme() + " à la ligne " + N(lineNumber) + ".";
}

XmlReadResult ImportXMLLireFichier(const std::string& path, XmlDeliveryVisitor& visitor,
                                   bool checkBytes) {
    XmlReadResult failed;
    failed.message = "Lecture impossible du fichier " + path + ".";
    return Guarded("ImportXMLLireFichier:" + std::string(kModuleImportXML), failed, [&] {
        std::ifstream in(path, std::ios::binary);
        if (!in) return failed;
        EnvelopeReader reader(visitor, checkBytes);
        std::vector<char> buffer(1 << 16);
        std::string pending;
        bool going = true;
        while (going && in) {
            in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
            std::string_view chunk(buffer.data(), static_cast<size_t>(in.gcount()));
            while (going && !chunk.empty()) {
                size_t nl = chunk.find('\n');
                std::string_view piece = chunk.substr(0, nl);
                if (pending.size() + piece.size() > kImportXMLMaxLine) {
                    reader.LineTooLong();
                    going = false;
                    break;
                }
                if (nl == std::string_view::npos) {
                    pending.append(piece);
                    break;
                }
                std::string_view line = piece;
                if (!pending.empty()) {
                    pending.append(piece);
                    line = pending;
                }
                if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
                going = reader.Line(line);
                pending.clear();
                chunk.remove_prefix(nl + 1);
            }
        }
        if (going && !in.eof()) return failed;
        if (going && !pending.empty()) {
            std::string_view line = pending;
            if (line.back() == '\r') line.remove_suffix(1);
            reader.Line(line);
        }
        return reader.Finish();
    });
}

}  // namespace toverin
