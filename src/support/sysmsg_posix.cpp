// The system's texts for Windows error numbers on POSIX, which has no such
// table: the English texts as Windows words them, and Swedish texts for a
// Swedish user. They cover every number the POSIX platform layer returns.
#include "support/platform.h"

namespace tarn {

namespace {

struct SystemMessage {
    uint32_t error;
    const char16_t* english;
    const char16_t* swedish;
};

constexpr SystemMessage SYSTEM_MESSAGES[] = {
    {2, u"The system cannot find the file specified.\r\n", u"Det går inte att hitta filen.\r\n"},
    {3, u"The system cannot find the path specified.\r\n", u"Det går inte att hitta sökvägen.\r\n"},
    {4, u"The system cannot open the file.\r\n", u"Det går inte att öppna filen.\r\n"},
    {5, u"Access is denied.\r\n", u"Åtkomst nekad.\r\n"},
    {6, u"The handle is invalid.\r\n", u"Referensen är ogiltig.\r\n"},
    {14, u"Not enough memory resources are available to complete this operation.\r\n",
     u"Det finns inte tillräckligt med minne för att slutföra åtgärden.\r\n"},
    {19, u"The media is write protected.\r\n", u"Mediet är skrivskyddat.\r\n"},
    {21, u"The device is not ready.\r\n", u"Enheten är inte klar.\r\n"},
    {29, u"The system cannot write to the specified device.\r\n",
     u"Det går inte att skriva till den angivna enheten.\r\n"},
    {30, u"The system cannot read from the specified device.\r\n",
     u"Det går inte att läsa från den angivna enheten.\r\n"},
    {31, u"A device attached to the system is not functioning.\r\n",
     u"En enhet som är ansluten till systemet fungerar inte.\r\n"},
    {32, u"The process cannot access the file because it is being used by another process.\r\n",
     u"Processen kan inte komma åt filen eftersom den används av en annan process.\r\n"},
    {38, u"Reached the end of the file.\r\n", u"Slutet av filen har nåtts.\r\n"},
    {80, u"The file exists.\r\n", u"Filen finns redan.\r\n"},
    {87, u"The parameter is incorrect.\r\n", u"Parametern är felaktig.\r\n"},
    {109, u"The pipe has been ended.\r\n", u"Pipen har avslutats.\r\n"},
    {110, u"The system cannot open the device or file specified.\r\n",
     u"Det går inte att öppna den angivna enheten eller filen.\r\n"},
    {112, u"There is not enough space on the disk.\r\n",
     u"Det finns inte tillräckligt med utrymme på disken.\r\n"},
    {131, u"An attempt was made to move the file pointer before the beginning of the file.\r\n",
     u"Filpekaren kan inte flyttas till före filens början.\r\n"},
    {132, u"The file pointer cannot be set on the specified device or file.\r\n",
     u"Filpekaren kan inte flyttas på den angivna enheten eller filen.\r\n"},
    {206, u"The filename or extension is too long.\r\n",
     u"Filnamnet eller filnamnstillägget är för långt.\r\n"},
    {223, u"The file size exceeds the limit allowed and cannot be saved.\r\n",
     u"Filen är större än tillåtet och kan inte sparas.\r\n"},
    {1113, u"No mapping for the Unicode character exists in the target multi-byte code page.\r\n",
     u"Unicode-tecknet saknar motsvarighet på målets teckentabell.\r\n"},
    {1921, u"The name of the file cannot be resolved by the system.\r\n",
     u"Systemet kan inte tolka filens namn.\r\n"},
};

} // namespace

std::u16string plat_system_message(uint32_t error) {
    bool swedish = plat_user_language_swedish();
    for (const SystemMessage& m : SYSTEM_MESSAGES)
        if (m.error == error) return swedish ? m.swedish : m.english;
    return std::u16string();
}

} // namespace tarn
