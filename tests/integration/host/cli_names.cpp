#include "cli_names.h"

#include <cxxabi.h>
#include <elf.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "abi.h"
#include "host_fixture.h"

namespace {

void ReplaceAll(std::string &text, const std::string &what, const std::string &by)
{
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
}

/** A name as the lists above have it. */
std::string Readable(const std::string &mangled)
{
    int status = 0;
    const std::unique_ptr<char, void (*)(void *)> whole(abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status),
                                                        std::free);
    std::string text = status == 0 ? whole.get() : mangled;
    ReplaceAll(text, "[abi:cxx11]", "");
    ReplaceAll(text, "std::__cxx11::", "std::");
    ReplaceAll(text, "std::basic_string<char, std::char_traits<char>, std::allocator<char> >", "S");
    ReplaceAll(text, "std::basic_stringstream<char, std::char_traits<char>, std::allocator<char> >",
               "std::stringstream");
    ReplaceAll(text, "std::vector<std::pair<int, S >, std::allocator<std::pair<int, S > > >",
               "std::vector<std::pair<int, S>>");
    ReplaceAll(text, "CORVANE_CLI::", "C::");
    return text;
}

std::map<std::string, std::string> ReadNames()
{
    std::map<std::string, std::string> names;
    const std::string file = ReadText(CORVANE_LIB_DIR "/libcorvane.so");
    Elf64_Ehdr header{};
    std::memcpy(&header, file.data(), sizeof(header));
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    std::memcpy(sections.data(), file.data() + header.e_shoff, sections.size() * sizeof(Elf64_Shdr));
    for (const Elf64_Shdr &section : sections) {
        for (size_t at = 0; section.sh_type == SHT_DYNSYM && at < section.sh_size; at += sizeof(Elf64_Sym)) {
            Elf64_Sym symbol{};
            std::memcpy(&symbol, file.data() + section.sh_offset + at, sizeof(symbol));
            const char *name = file.data() + sections[section.sh_link].sh_offset + symbol.st_name;
            if (symbol.st_shndx != SHN_UNDEF) {
                names.emplace(Readable(name), name);
            }
        }
    }
    return names;
}

} // namespace

const std::map<std::string, std::string> &CliNames()
{
    static const std::map<std::string, std::string> names = ReadNames();
    return names;
}

void *CliAddress(const std::string &readable)
{
    const auto found = CliNames().find(readable);
    if (found == CliNames().end()) {
        (void)std::fprintf(stderr, "the library has no %s\n", readable.c_str());
        std::abort();
    }
    return lib::Address(found->second.c_str());
}
