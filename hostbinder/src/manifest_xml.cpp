#include "manifest_xml.h"

#include <cstring>
#include <memory>
#include <utility>

namespace {

struct Element {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<Element> children;
    std::string text;

    const std::string* attribute(const char* key) const {
        for (const auto& [k, v] : attributes) {
            if (k == key) return &v;
        }
        return nullptr;
    }
};

// No honest manifest nests deeper; a bound keeps a hostile file from exhausting the stack.
constexpr int kMaxDepth = 16;

class Reader {
public:
    explicit Reader(const std::string& text) : mText(text) {}

    bool document(Element* root) {
        if (lookingAt("<?xml")) {
            const size_t end = mText.find("?>", mAt);
            if (end == std::string::npos) return fail("the XML declaration does not end");
            advanceTo(end + 2);
        }
        if (!misc()) return false;
        if (!lookingAt("<")) return fail("no root element");
        if (!element(root, 0)) return false;
        if (!misc()) return false;
        return mAt == mText.size() || fail("text after the root element");
    }

    std::string error() const { return "line " + std::to_string(mLine) + ": " + mError; }

private:
    bool fail(const std::string& why) {
        if (mError.empty()) mError = why;
        return false;
    }
    bool lookingAt(const char* s) const { return mText.compare(mAt, strlen(s), s) == 0; }
    void advanceTo(size_t at) {
        for (; mAt < at && mAt < mText.size(); ++mAt) {
            if (mText[mAt] == '\n') ++mLine;
        }
    }
    void skipSpace() {
        while (mAt < mText.size() && strchr(" \t\r\n", mText[mAt]) != nullptr && mText[mAt] != 0) {
            advanceTo(mAt + 1);
        }
    }
    bool comment() {
        const size_t end = mText.find("-->", mAt + 4);
        if (end == std::string::npos) return fail("a comment does not end");
        advanceTo(end + 3);
        return true;
    }
    // Space and comments, between and around elements.
    bool misc() {
        for (;;) {
            skipSpace();
            if (!lookingAt("<!--")) return true;
            if (!comment()) return false;
        }
    }
    static bool nameChar(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-' || c == '.' || c == ':';
    }
    bool name(std::string* out) {
        const size_t begin = mAt;
        while (mAt < mText.size() && nameChar(mText[mAt])) ++mAt;
        if (mAt == begin) return fail("a name was expected");
        *out = mText.substr(begin, mAt - begin);
        return true;
    }
    // Text up to `stop`, with its entities replaced.
    bool characters(char stop, std::string* out) {
        while (mAt < mText.size() && mText[mAt] != stop) {
            const char c = mText[mAt];
            if (c == '<') return fail("'<' inside a value");
            if (c != '&') {
                out->push_back(c);
                advanceTo(mAt + 1);
                continue;
            }
            static const std::pair<const char*, char> kEntities[] = {{"&amp;", '&'},
                                                                     {"&lt;", '<'},
                                                                     {"&gt;", '>'},
                                                                     {"&quot;", '"'},
                                                                     {"&apos;", '\''}};
            bool known = false;
            for (const auto& [entity, replacement] : kEntities) {
                if (lookingAt(entity)) {
                    out->push_back(replacement);
                    mAt += strlen(entity);
                    known = true;
                    break;
                }
            }
            if (!known) return fail("an unknown entity or a bare '&'");
        }
        return true;
    }
    bool element(Element* e, int depth) {
        if (depth >= kMaxDepth) return fail("elements nested too deep");
        ++mAt;  // '<'
        if (!name(&e->name)) return false;
        for (;;) {
            skipSpace();
            if (lookingAt("/>")) {
                mAt += 2;
                return true;
            }
            if (lookingAt(">")) {
                ++mAt;
                break;
            }
            std::pair<std::string, std::string> attribute;
            if (!name(&attribute.first)) return false;
            skipSpace();
            if (!lookingAt("=")) return fail("'=' expected after attribute " + attribute.first);
            ++mAt;
            skipSpace();
            if (mAt >= mText.size() || (mText[mAt] != '"' && mText[mAt] != '\'')) {
                return fail("a quoted value expected for attribute " + attribute.first);
            }
            const char quote = mText[mAt++];
            if (!characters(quote, &attribute.second)) return false;
            if (mAt >= mText.size())
                return fail("the value of " + attribute.first + " does not end");
            ++mAt;
            e->attributes.push_back(std::move(attribute));
        }
        // Content: text, comments and child elements, until the matching end tag.
        for (;;) {
            if (mAt >= mText.size()) return fail("<" + e->name + "> is not closed");
            if (lookingAt("</")) {
                mAt += 2;
                std::string closing;
                if (!name(&closing)) return false;
                if (closing != e->name) {
                    return fail("</" + closing + "> closes <" + e->name + ">");
                }
                skipSpace();
                if (!lookingAt(">")) return fail("'>' expected after </" + closing);
                ++mAt;
                return true;
            }
            if (lookingAt("<!--")) {
                if (!comment()) return false;
            } else if (lookingAt("<!") || lookingAt("<?")) {
                return fail("declarations, CDATA and processing instructions are not read");
            } else if (lookingAt("<")) {
                e->children.emplace_back();
                if (!element(&e->children.back(), depth + 1)) return false;
            } else if (!characters('<', &e->text)) {
                return false;
            }
        }
    }

    const std::string& mText;
    size_t mAt = 0;
    int mLine = 1;
    std::string mError;
};

std::string trimmed(const std::string& s) {
    const size_t begin = s.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) return "";
    return s.substr(begin, s.find_last_not_of(" \t\r\n") - begin + 1);
}

// The text of the one child called `name`; false when there is none or more than one.
bool onlyChildText(const Element& e, const char* name, std::string* out) {
    int found = 0;
    for (const Element& c : e.children) {
        if (c.name == name) {
            *out = trimmed(c.text);
            ++found;
        }
    }
    return found == 1 && !out->empty();
}

bool identifier(const std::string& s, bool dots) {
    if (s.empty()) return false;
    for (char c : s) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '_' || (dots && c == '.');
        if (!ok) return false;
    }
    return true;
}

// One <hal format="aidl">: its package, then instances named by <fqname>IFoo/instance</fqname>
// or by <interface><name>IFoo</name><instance>instance</instance></interface>.
bool aidlHal(const Element& hal, std::vector<std::string>* instances, std::string* why) {
    std::string package;
    if (!onlyChildText(hal, "name", &package) || !identifier(package, true)) {
        *why = "an aidl <hal> needs one <name> holding a package name";
        return false;
    }
    auto add = [&](const std::string& interface, const std::string& instance) {
        if (!identifier(interface, false) || instance.empty() ||
            instance.find_first_of(" \t\r\n") != std::string::npos) {
            *why = "in " + package + ": \"" + interface + "/" + instance +
                   "\" is not an interface and an instance";
            return false;
        }
        instances->push_back(package + "." + interface + "/" + instance);
        return true;
    };
    for (const Element& c : hal.children) {
        if (c.name == "fqname") {
            const std::string fq = trimmed(c.text);
            const size_t slash = fq.find('/');
            if (slash == std::string::npos) {
                *why = "in " + package + ": <fqname>" + fq + "</fqname> has no /instance";
                return false;
            }
            if (!add(fq.substr(0, slash), fq.substr(slash + 1))) return false;
        } else if (c.name == "interface") {
            std::string interface;
            if (!onlyChildText(c, "name", &interface)) {
                *why = "in " + package + ": an <interface> needs one <name>";
                return false;
            }
            for (const Element& i : c.children) {
                if (i.name == "instance" && !add(interface, trimmed(i.text))) return false;
            }
        }
    }
    return true;
}

}  // namespace

bool aidlInstancesOfManifest(const std::string& text, std::vector<std::string>* instances,
                             std::string* why) {
    Element root;
    Reader reader(text);
    if (!reader.document(&root)) {
        *why = reader.error();
        return false;
    }
    if (root.name != "manifest") {
        *why = "the root element is <" + root.name + ">, not <manifest>";
        return false;
    }
    std::vector<std::string> found;
    for (const Element& hal : root.children) {
        if (hal.name != "hal") continue;
        // HIDL and native entries declare nothing the binder service manager serves.
        const std::string* format = hal.attribute("format");
        if (format == nullptr || *format != "aidl") continue;
        if (!aidlHal(hal, &found, why)) return false;
    }
    instances->insert(instances->end(), found.begin(), found.end());
    return true;
}
