#include "BundleFile.hpp"

#include <elf.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kestrel::framework {

namespace {

// The symbol that every bundle of the service framework exports; empty for a framework that tells bundles
// from other files by itself before it loads them.
constexpr std::string_view marker = KESTREL_BUNDLE_MARKER;

void require(bool holds, const std::string& expected) {
  if (!holds) {
    throw std::runtime_error("expected " + expected);
  }
}

/// A shared object as a file of bytes. Everything it says about places in itself is checked against its size.
class ElfFile {
 public:
  explicit ElfFile(const std::filesystem::path& path)
      : _size(std::filesystem::file_size(path)), _stream(path, std::ios::binary) {
    const bool hasHeader = _size >= sizeof(_header);
    if (hasHeader) {
      _header = read<Elf64_Ehdr>(0, 1, "its header").front();
    }
    require(hasHeader && std::memcmp(_header.e_ident, ELFMAG, SELFMAG) == 0 &&
                _header.e_ident[EI_CLASS] == ELFCLASS64 && _header.e_ident[EI_DATA] == ELFDATA2LSB &&
                _header.e_type == ET_DYN,
            "a 64-bit shared object, got another kind of file");
  }

  void checkSegments() {
    require(_header.e_phnum > 0 && _header.e_phentsize == sizeof(Elf64_Phdr), "segments");
    for (const auto& segment : read<Elf64_Phdr>(_header.e_phoff, _header.e_phnum, "its segment table")) {
      requireInside(segment.p_offset, segment.p_filesz, "a segment");
    }
  }

  /// The section headers come last in what linkers write, so a file that was cut short anywhere shows here.
  void checkSections() {
    if (_header.e_shoff == 0) {
      return;
    }
    require(_header.e_shentsize == sizeof(Elf64_Shdr), "section headers of 64 bytes");
    _sections = read<Elf64_Shdr>(_header.e_shoff, _header.e_shnum, "its section table");
    for (const auto& section : _sections) {
      if (section.sh_type != SHT_NULL && section.sh_type != SHT_NOBITS) {
        requireInside(section.sh_offset, section.sh_size, "a section");
      }
    }
  }

  /// After checkSections().
  [[nodiscard]] bool exports(std::string_view symbol) {
    const auto table = std::ranges::find(_sections, SHT_DYNSYM, &Elf64_Shdr::sh_type);
    if (table == _sections.end() || table->sh_link >= _sections.size()) {
      return false;
    }
    const auto names = read<char>(_sections[table->sh_link].sh_offset, _sections[table->sh_link].sh_size,
                                  "the names of its symbols");
    const auto symbols = read<Elf64_Sym>(table->sh_offset, table->sh_size / sizeof(Elf64_Sym), "its symbols");
    const std::string wanted = std::string(symbol) + '\0';
    return std::ranges::any_of(symbols, [&](const Elf64_Sym& entry) {
      return entry.st_shndx != SHN_UNDEF && entry.st_name < names.size() &&
             std::string_view(names.data(), names.size()).substr(entry.st_name).starts_with(wanted);
    });
  }

 private:
  void requireInside(std::uint64_t offset, std::uint64_t bytes, const std::string& what) const {
    require(offset <= _size && bytes <= _size - offset,
            "a whole file, but " + what + " lies past its end, byte " + std::to_string(_size));
  }

  template <class T>
  [[nodiscard]] std::vector<T> read(std::uint64_t offset, std::uint64_t count, const char* what) {
    requireInside(offset, count * sizeof(T), what);
    std::vector<T> items(count);
    _stream.seekg(static_cast<std::streamoff>(offset));
    _stream.read(reinterpret_cast<char*>(items.data()), static_cast<std::streamsize>(count * sizeof(T)));
    require(_stream.good(), std::string("a file whose bytes can be read, failed at ") + what);
    return items;
  }

  const std::uint64_t _size;
  std::ifstream _stream;
  Elf64_Ehdr _header{};
  std::vector<Elf64_Shdr> _sections;
};

}  // namespace

void checkBundleFile(const std::filesystem::path& file) {
  ElfFile elf(file);
  elf.checkSegments();
  elf.checkSections();
  if (!marker.empty()) {
    require(elf.exports(marker), "a bundle of this service framework, got another shared object");
  }
}

}  // namespace kestrel::framework
