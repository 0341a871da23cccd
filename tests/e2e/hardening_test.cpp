// What an attacker of the daemon would find: properties of the built file and of the process.

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

#include "support/bench.h"

namespace kelp::test {
namespace {

std::string Contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// The built daemon, as its headers describe it.
struct Binary {
    Binary() : bytes(Contents(KELP_DAEMON_FILE)) {
        const auto header = At<Elf64_Ehdr>(0);
        type = header.e_type;
        for (int i = 0; i < header.e_phnum; ++i) {
            segments.push_back(At<Elf64_Phdr>(header.e_phoff + sizeof(Elf64_Phdr) * i));
        }
        for (int i = 0; i < header.e_shnum; ++i) {
            const auto section = At<Elf64_Shdr>(header.e_shoff + sizeof(Elf64_Shdr) * i);
            const size_t count = section.sh_size / std::max<size_t>(section.sh_entsize, 1);
            for (size_t j = 0; j < count && section.sh_type == SHT_DYNAMIC; ++j) {
                const auto entry = At<Elf64_Dyn>(section.sh_offset + sizeof(Elf64_Dyn) * j);
                flags |= entry.d_tag == DT_FLAGS ? entry.d_un.d_val : 0;
                flags1 |= entry.d_tag == DT_FLAGS_1 ? entry.d_un.d_val : 0;
                textRelocated |= entry.d_tag == DT_TEXTREL;
            }
            for (size_t j = 0; j < count && section.sh_type == SHT_DYNSYM; ++j) {
                const auto symbol = At<Elf64_Sym>(section.sh_offset + sizeof(Elf64_Sym) * j);
                const auto names =
                    At<Elf64_Shdr>(header.e_shoff + sizeof(Elf64_Shdr) * section.sh_link);
                if (symbol.st_shndx == SHN_UNDEF) {
                    imports.insert(bytes.data() + names.sh_offset + symbol.st_name);
                }
            }
        }
    }

    template <typename T>
    T At(size_t offset) const {
        T value = {};
        if (offset + sizeof(T) <= bytes.size()) {
            memcpy(&value, bytes.data() + offset, sizeof(T));
        }
        return value;
    }

    const std::string bytes;
    int type = ET_NONE;
    std::vector<Elf64_Phdr> segments;
    uint64_t flags = 0, flags1 = 0;
    bool textRelocated = false;
    std::set<std::string> imports;
};

TEST(Hardening, BuiltFile) {
    const Binary binary;
    EXPECT_EQ(binary.type, ET_DYN);
    EXPECT_TRUE(binary.flags1 & DF_1_PIE);
    EXPECT_TRUE((binary.flags & DF_BIND_NOW) != 0 && (binary.flags1 & DF_1_NOW) != 0);
    EXPECT_FALSE(binary.textRelocated);
    int relro = 0, stacks = 0;
    for (const Elf64_Phdr& segment : binary.segments) {
        relro += segment.p_type == PT_GNU_RELRO;
        stacks += segment.p_type == PT_GNU_STACK;
        EXPECT_NE(segment.p_flags & (PF_W | PF_X), unsigned{PF_W | PF_X}) << segment.p_type;
    }
    EXPECT_EQ(relro, 1);
    EXPECT_EQ(stacks, 1);
}

TEST(Hardening, Imports) {
    if (!KELP_HARD_BUILD) {
        GTEST_SKIP()
            << "a sanitizer's or a debug build: its library calls are not the shipped ones";
    }
    const std::set<std::string> imports = Binary().imports;
    EXPECT_EQ(imports.count("__stack_chk_fail"), 1u);
    // Those that the compiler can check; without any the macro was lost.
    EXPECT_TRUE(imports.count("__read_chk") + imports.count("__snprintf_chk") +
                    imports.count("__memcpy_chk") + imports.count("__recv_chk") >=
                1u);
    for (const char* name :
         {"getaddrinfo",   "gethostbyname", "gethostbyname_r", "gethostbyaddr", "getnameinfo",
          "getservbyname", "res_query",     "system",          "popen",         "fork",
          "vfork",         "execl",         "execlp",          "execle",        "execv",
          "execvp",        "execvpe",       "execve",          "posix_spawn",   "posix_spawnp",
          "dlopen",        "setenv",        "putenv",          "secure_getenv", "mprotect",
          "strcpy",        "strcat",        "sprintf",         "gets"}) {
        EXPECT_EQ(imports.count(name), 0u) << name;
    }
}

using HardProcess = Bench;

TEST_F(HardProcess, MappingsAndMask) {
    Start();
    const std::string process = "/proc/" + std::to_string(mKelp->Pid());
    EXPECT_NE(Contents(process + "/status").find("Umask:\t0077\n"), std::string::npos);
    std::ifstream maps(process + "/maps");
    int lines = 0;
    for (std::string line; std::getline(maps, line); ++lines) {
        EXPECT_EQ(line.find(" rwx"), std::string::npos) << line;
    }
    EXPECT_GT(lines, 0);
}

}  // namespace
}  // namespace kelp::test
