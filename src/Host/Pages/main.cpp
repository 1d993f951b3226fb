#include "Host/Pages/Pages.h"
#include "Platform/Files.h"

#include <iostream>
#include <span>

/// veltry-pages MANUAL BASH ZSH FISH SETTINGS: writes the four files. SETTINGS is docs/settings.md. A part of the
/// build, never installed.
int main(int count, char** arguments)
{
    using namespace veltry;
    const std::span<char*> given(arguments, static_cast<std::size_t>(count));
    if (count != 6) {
        std::cerr << "veltry-pages takes five paths\n";
        return 2;
    }
    try {
        Files::writeAtomically(given[1], Pages::manual(Files::readIfPossible(given[5]).value_or("")));
        Files::writeAtomically(given[2], Pages::bashCompletion());
        Files::writeAtomically(given[3], Pages::zshCompletion());
        Files::writeAtomically(given[4], Pages::fishCompletion());
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "veltry-pages: " << error.what() << '\n';
        return 1;
    }
}
