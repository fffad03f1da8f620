#include "cimserver/mof/reader.h"

#include <cstddef>
#include <fstream>
#include <iterator>
#include <utility>

#include "cimserver/mof/tokens.h"

namespace cimserver {

namespace {

constexpr std::size_t LARGEST_FILE_BYTES = 4U << 20;

struct Mistake {
    int line;
    std::string text;
};

std::string shown(const Token& token) {
    switch (token.kind) {
        case TokenKind::text:
            return "\"" + token.text + "\"";
        case TokenKind::sign:
            return "'" + token.text + "'";
        default:
            return token.text;
    }
}

class Reader {
public:
    Reader(std::string_view text, Schema& schema) : tokens_(text), schema_(schema) { take(); }

    void read() {
        while (token_.kind != TokenKind::end) {
            if (token_.kind == TokenKind::directive) {
                take();
            } else if (is_name("Qualifier")) {
                skip_declaration();
            } else {
                read_class();
            }
        }
    }

private:
    Tokens tokens_;
    Schema& schema_;
    Token token_;

    [[noreturn]] void expected(const std::string& what) const {
        throw Mistake{token_.line, "expected " + what + ", found " + shown(token_)};
    }
    Token take() {
        Token taken = std::exchange(token_, tokens_.next());
        if (token_.kind == TokenKind::bad) {
            throw Mistake{token_.line, "can't be read: " + token_.text};
        }
        return taken;
    }
    bool is_sign(char sign) const { return token_.kind == TokenKind::sign && token_.text[0] == sign; }
    bool is_name(std::string_view name) const { return token_.kind == TokenKind::name && same_name(token_.text, name); }
    bool take_if(char sign) {
        const bool there = is_sign(sign);
        if (there) {
            take();
        }
        return there;
    }
    void need(char sign) {
        if (!take_if(sign)) {
            expected(std::string("'") + sign + "'");
        }
    }
    std::string need_name(const std::string& what) {
        if (token_.kind != TokenKind::name) {
            expected(what);
        }
        return take().text;
    }

    void skip_declaration() {
        while (!is_sign(';')) {
            if (token_.kind == TokenKind::end) {
                expected("';' after a qualifier declaration");
            }
            take();
        }
        take();
    }

    // --- values -------------------------------------------------------------------------------------------

    // One value; without a type of its own it takes what it looks like.
    CimValue read_single(CMPIType type) {
        if (token_.kind == TokenKind::text) {
            std::string text = take().text;
            while (token_.kind == TokenKind::text) {  // adjacent texts are one
                text += take().text;
            }
            return converted(type == CMPI_null ? CMPI_string : type, text);
        }
        if (is_name("null")) {
            take();
            return null_value(type);
        }
        if (is_name("true") || is_name("false")) {
            return converted(type == CMPI_null ? CMPI_boolean : type, take().text);
        }
        if (token_.kind == TokenKind::number) {
            return converted(type == CMPI_null ? CMPI_sint64 : type, take().text);
        }
        expected("a value");
    }
    CimValue converted(CMPIType type, const std::string& text) const {
        auto value = parse_value(type, text);
        if (!value) {
            throw Mistake{token_.line, "'" + text + "' is no " + std::string(type_name(type))};
        }
        return std::move(*value);
    }
    CimValue read_value(CMPIType type) {
        const auto element = static_cast<CMPIType>(type & ~CMPI_ARRAY);
        if (!take_if('{')) {
            return read_single(element);
        }
        ValueList list;
        while (!is_sign('}')) {
            list.push_back(read_single(element));
            if (!take_if(',')) {
                break;
            }
        }
        need('}');
        const CMPIType found = !list.empty() ? list[0].type : CMPI_string;
        return {static_cast<CMPIType>((element == CMPI_null ? found : element) | CMPI_ARRAY), std::move(list)};
    }

    // --- qualifiers ---------------------------------------------------------------------------------------

    QualifierList read_qualifiers() {
        QualifierList list;
        if (!take_if('[')) {
            return list;
        }
        do {
            const int line = token_.line;
            std::string name = need_name("a qualifier");
            CimValue value{CMPI_boolean, true};
            if (take_if('(')) {
                value = read_value(CMPI_null);
                need(')');
            } else if (is_sign('{')) {
                value = read_value(CMPI_null);
            }
            if (take_if(':')) {
                while (token_.kind == TokenKind::name) {  // flavours
                    take();
                }
            }
            if (find(list, name) != nullptr) {
                throw Mistake{line, "qualifier " + name + " stands here twice"};
            }
            list.push_back({std::move(name), std::move(value)});
        } while (take_if(','));
        need(']');
        return list;
    }

    // --- classes ------------------------------------------------------------------------------------------

    void read_class() {
        Class definition;
        definition.qualifiers = read_qualifiers();
        if (!is_name("class")) {
            expected("a class");
        }
        take();
        const int line = token_.line;
        definition.name = need_name("a class name");
        if (take_if(':')) {
            definition.superclass = need_name("a superclass");
            if (schema_.find(definition.superclass) == nullptr) {
                throw Mistake{line, "superclass " + definition.superclass + " of " + definition.name + " is not known"};
            }
        }
        need('{');
        while (!take_if('}')) {
            read_feature(definition);
        }
        need(';');
        const std::string name = definition.name;
        if (!schema_.add(std::move(definition))) {
            throw Mistake{line, "class " + name + " is defined twice"};
        }
    }

    // Type and name of a feature or parameter; an array's brackets are read with it.
    Element read_element() {
        Element element;
        element.qualifiers = read_qualifiers();
        const int line = token_.line;
        const std::string type = need_name("a type");
        element.type = type_of(type);
        if (is_name("REF")) {
            take();
            element.type = CMPI_ref;
            element.reference_class = type;
        } else if (element.type == CMPI_null) {
            throw Mistake{line, "'" + type + "' is no type"};
        }
        element.name = need_name("a name");
        if (take_if('[')) {
            if (token_.kind == TokenKind::number) {
                take();
            }
            need(']');
            element.type |= CMPI_ARRAY;
        }
        return element;
    }

    void read_feature(Class& definition) {
        const int line = token_.line;
        Element element = read_element();
        if (is_sign('(')) {
            refuse_second(definition.methods, element.name, line);
            Method method;
            static_cast<Element&>(method) = std::move(element);
            method.parameters = read_parameters();
            definition.methods.push_back(std::move(method));
        } else {
            refuse_second(definition.properties, element.name, line);
            if (take_if('=')) {
                element.initial = read_value(element.type);
            }
            definition.properties.push_back(std::move(element));
        }
        need(';');
    }

    std::vector<Element> read_parameters() {
        std::vector<Element> parameters;
        need('(');
        while (!is_sign(')')) {
            const int line = token_.line;
            Element parameter = read_element();
            refuse_second(parameters, parameter.name, line);
            parameters.push_back(std::move(parameter));
            if (!take_if(',')) {
                break;
            }
        }
        need(')');
        return parameters;
    }

    template <typename Feature>
    static void refuse_second(const std::vector<Feature>& features, const std::string& name, int line) {
        if (find_named(features, name) != nullptr) {
            throw Mistake{line, name + " stands here twice"};
        }
    }
};

}  // namespace

bool read_mof(std::string_view text, const std::string& file, Schema& schema, std::string& error) {
    try {
        Reader(text, schema).read();
        return true;
    } catch (const Mistake& mistake) {
        error = file + ":" + std::to_string(mistake.line) + ": " + mistake.text;
        return false;
    }
}

bool read_mof_file(const std::string& file, Schema& schema, std::string& error) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        error = file + ":0: can't be opened";
        return false;
    }
    std::string text(LARGEST_FILE_BYTES + 1, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    if (text.size() > LARGEST_FILE_BYTES) {
        error = file + ":0: larger than 4 MiB";
        return false;
    }
    return read_mof(text, file, schema, error);
}

}  // namespace cimserver
