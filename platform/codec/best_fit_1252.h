// What Windows-1252 has for characters that it does not have: the stand-ins that the system's own
// conversion chooses ("best fit"), as a sweep over all 65,536 units shows them.
#pragma once

#include <string_view>

namespace platform::software {

// Stand-ins for units that follow one another: for `first`, `first` + 1 and so on. All of them are
// characters of the code page, but for □, which says that there is no fit; a unit that the code
// page does have stands for itself.
struct BestFitRun {
  char16_t first;
  std::u16string_view stand_ins;
};

// In ascending order; no unit outside the runs has a fit.
inline constexpr BestFitRun kBestFits[] = {
    {0x0100,
     u"AaAaAaCcCcCcCcDdÐdEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiIi□□JjKk□LlLlLl□"
     u"□LlNnNnNn□□□OoOoOoŒœRrRrRrSsSsSsŠšTtTtTtUuUuUuUuUuUuWwYyŸZzZzŽž□"
     u"b"},
    {0x0189, u"Ð"},
    {0x0191, u"ƒ"},
    {0x0197, u"I□□l"},
    {0x019F, u"OOo"},
    {0x01AB, u"t□□TUu"},
    {0x01B6, u"z"},
    {0x01C0, u"|□□!"},
    {0x01CD, u"AaIiOoUuUuUuUuUu□Aa"},
    {0x01E4, u"GgGgKkOoOo□□j"},
    {0x0261, u"g"},
    {0x02B9, u"'\"□'"},
    {0x02C4, u"^□ˆ□'¯´`□_"},
    {0x02DA, u"°"},
    {0x0300, u"`´^~¯¯□□¨□°□□□\""},
    {0x0327, u"¸"},
    {0x0331, u"__"},
    {0x037E, u";"},
    {0x0393, u"G"},
    {0x0398, u"T"},
    {0x03A3, u"S□□F□□O"},
    {0x03B1, u"aß□de"},
    {0x03BC, u"µ□□□p□□st□f"},
    {0x04BB, u"h"},
    {0x0589, u":"},
    {0x066A, u"%"},
    {0x2000, u"       "},
    {0x2010, u"--"},
    {0x2017, u"="},
    {0x2024, u"·"},
    {0x2032, u"'□□`"},
    {0x2044, u"/"},
    {0x2070, u"°□□□45678"},
    {0x207F, u"n0123456789"},
    {0x20A1, u"¢□□£□□P"},
    {0x2102, u"C"},
    {0x2107, u"E□□gHHHh□IILl□N□□PPQRRR"},
    {0x2124, u"Z□□□Z□KÅBCeeEF□Mo"},
    {0x2205, u"Ø"},
    {0x2212, u"-±□/\\*°·v□□□8"},
    {0x2223, u"|"},
    {0x2229, u"n"},
    {0x2236, u":"},
    {0x223C, u"~"},
    {0x2248, u"˜"},
    {0x2261, u"=□□=="},
    {0x226A, u"«»"},
    {0x22C5, u"·"},
    {0x2302, u"¦^"},
    {0x2310, u"¬"},
    {0x2320, u"()"},
    {0x2329, u"<>"},
    {0x2500, u"-□¦"},
    {0x250C, u"+□□□+□□□+□□□+□□□+"},
    {0x2524, u"¦"},
    {0x252C, u"-"},
    {0x2534, u"-"},
    {0x253C, u"+"},
    {0x2550, u"-¦++++++++++++¦¦¦¦¦¦------+++"},
    {0x2580, u"¯□□□_□□□¦□□□¦□□□¦¦¦¦"},
    {0x25A0, u"¦"},
    {0x263C, u"¤"},
    {0x2758, u"|"},
    {0x3000, u" "},
    {0x3008, u"<>«»"},
    {0x301A, u"[]"},
    {0x30FB, u"·"},
    {0xFF01,
     u"!\"#$%&'()*+,-./0123456789:;<=>□@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
     u"abcdefghijklmnopqrstuvwxyz{|}~"},
};

}  // namespace platform::software
