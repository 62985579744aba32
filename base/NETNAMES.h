// Host names and dotted quads as text, and the names of the local machine.
#pragma once

#include <cstddef>
#include <cstdint>

// The pure-text half of the network layer: the message model checks addresses and builds
// Message-IDs with it, and the server settings check host names, without any socket.
class NETNAMES {
public:
    static constexpr size_t kDottedQuadMax = 15;
    static constexpr size_t kHostnameMax = 70;   // hostnameCheck length limit
    static constexpr size_t kCleanKeepMax = 198; // hostnameClean stops after this many
    static constexpr size_t kCleanOutMax = 71;   // hostnameClean result, terminator included
    static constexpr size_t kLocalPartMax = 200; // localFQDN reads each part into this
    static constexpr const char *kUnknownHost = "unknown";
    static constexpr const char *kUnknownDomain = "unknown.dom";

    // The dotted quad's address, or 0 when the text is not one ("0.0.0.0" included).
    static uint32_t inetAddr(const char *text);
    // out must hold 16 bytes.
    static void inetStr(char *out, uint32_t address, bool padded);
    static bool hostnameCheck(const char *name);
    // Cleans in place: letters, digits, '-' and single dots, cut to min(size, 71) bytes.
    static void hostnameClean(char *name, unsigned long size);
    // The machine's cleaned host name or "unknown"; true when the platform gave one.
    static bool localHost(char *out, unsigned long size);
    // The resolver's domain, else the host name's domain part, else "unknown.dom"; true when
    // one was found.
    static bool localDomain(char *out, unsigned long size);
    // Host name with the domain appended unless already there; true when both were found.
    static bool localFQDN(char *out, unsigned long size);
};
