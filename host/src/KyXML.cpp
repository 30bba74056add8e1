// KyXML: XML documents and their XSLT transforms, over libxml2 and libxslt.
//   local document = KyXML.KyXML(text)        -- raises when the text is no well-formed XML
//   local result = document:transform(xslt)   -- the result as text; raises when it cannot be made
// Stylesheets may not read or write files or reach the network. Main thread.
#include <libxml/parser.h>
#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "KyHostModules.h"

namespace {

constexpr const char* kDocumentMeta = "KyXMLDocument";
constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

// libxml2 and libxslt report through a global callback: the last message is kept for the raise
// instead of being printed.
std::string lastMessage;

void keepMessage(void*, const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::string line(text);
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.pop_back();
    if (!line.empty()) lastMessage = line;
}

void quietLibraries() {
    static const bool quiet = [] {
        xmlSetGenericErrorFunc(nullptr, keepMessage);
        xsltSetGenericErrorFunc(nullptr, keepMessage);
        return true;
    }();
    (void)quiet;
}

[[noreturn]] void raise(lua_State* L, const char* what) {
    const std::string message = lastMessage;
    lastMessage.clear();
    luaL_error(L, "KyXML: %s%s%s", what, message.empty() ? "" : ": ", message.c_str());
    __builtin_unreachable();
}

xmlDocPtr parse(lua_State* L, int index, const char* what) {
    size_t length = 0;
    const char* text = luaL_checklstring(L, index, &length);
    quietLibraries();
    xmlDocPtr document = xmlReadMemory(text, static_cast<int>(length), "document.xml", nullptr, kParseOptions);
    if (document == nullptr) raise(L, what);
    return document;
}

xmlDocPtr& documentAt(lua_State* L, int index) {
    return *static_cast<xmlDocPtr*>(luaL_checkudata(L, index, kDocumentMeta));
}

// The stylesheet's security: no file, directory or network access.
xsltSecurityPrefsPtr lockedDown() {
    static xsltSecurityPrefsPtr prefs = [] {
        xsltSecurityPrefsPtr made = xsltNewSecurityPrefs();
        for (xsltSecurityOption option : {XSLT_SECPREF_READ_FILE, XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY,
                                          XSLT_SECPREF_READ_NETWORK, XSLT_SECPREF_WRITE_NETWORK}) {
            xsltSetSecurityPrefs(made, option, xsltSecurityForbid);
        }
        return made;
    }();
    return prefs;
}

int transform(lua_State* L) {
    xmlDocPtr document = documentAt(L, 1);
    xmlDocPtr stylesheetDocument = parse(L, 2, "the stylesheet is no well-formed XML");
    xsltStylesheetPtr stylesheet = xsltParseStylesheetDoc(stylesheetDocument);
    if (stylesheet == nullptr) {
        xmlFreeDoc(stylesheetDocument);
        raise(L, "the stylesheet is no XSLT");
    }
    xsltTransformContextPtr context = xsltNewTransformContext(stylesheet, document);
    xsltSetCtxtSecurityPrefs(lockedDown(), context);
    xmlDocPtr result = xsltApplyStylesheetUser(stylesheet, document, nullptr, nullptr, nullptr, context);
    xmlChar* text = nullptr;
    int length = 0;
    const bool saved = result != nullptr && xsltSaveResultToString(&text, &length, result, stylesheet) == 0;
    xsltFreeTransformContext(context);
    if (result != nullptr) xmlFreeDoc(result);
    xsltFreeStylesheet(stylesheet);
    if (!saved) raise(L, "the transform failed");
    lua_pushlstring(L, text ? reinterpret_cast<const char*>(text) : "", static_cast<size_t>(length));
    xmlFree(text);
    return 1;
}

int collect(lua_State* L) {
    xmlDocPtr& document = documentAt(L, 1);
    if (document != nullptr) xmlFreeDoc(document);
    document = nullptr;
    return 0;
}

int newDocument(lua_State* L) {
    xmlDocPtr document = parse(L, 1, "the text is no well-formed XML");
    *static_cast<xmlDocPtr*>(lua_newuserdata(L, sizeof(xmlDocPtr))) = document;
    static const luaL_Reg methods[] = {{"transform", transform}, {"__gc", collect}, {nullptr, nullptr}};
    ky::pushMetatable(L, kDocumentMeta, methods);
    lua_setmetatable(L, -2);
    return 1;
}

}  // namespace

const luaL_Reg ky::kXMLFunctions[] = {{"KyXML", newDocument}, {nullptr, nullptr}};
