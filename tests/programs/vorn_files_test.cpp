// The commands of vorn that digest and scramble files.
#include "support/harness.h"
#include "support/program.h"

namespace {

// In a folder with files of odd names and with lists of them, good and bad.
TEST(VornMd5, PrintsAndChecksAsMd5sumDoes) {
    const harness::scratch folder("vorn=$PWD/vorn; cd {}; ");
    const std::string abc = "900150983cd24fb0d6963f7d28e17f72", upper = "900150983CD24FB0D6963F7D28E17F72";
    std::string output;
    if (folder.run("md5sum --version | grep ' 9[.]'", &output) != 0) GTEST_SKIP() << "md5sum is not of coreutils 9";
    for (const char *const name : {"a\\b", "a\nb", "d\rd"}) folder.write(name, "abc");
    folder.write("c", std::string(200'001, '\0'));
    folder.write("mixed", "# " + abc + "  c\n\n \t" + upper + " *a\\b\n\\" + abc + "  a\\nb\n\\" + abc + "  a\\xb\n\\" +
                              abc + "  a\\\n" + abc + "  c\n" + abc + "  missing\n" + abc + "  folder\n" + abc +
                              "0  c\n" + abc.substr(1) + "g  c\n" + abc.substr(1) + "  c\n" + abc + "  \n" + abc +
                              "  -\n");
    folder.write("ends", abc + "  a\\b\r\n" + abc + "  a\\b");
    folder.write("none", "# no digest\n");
    folder.expect({{"mkdir folder && md5sum a* c d* > list", 0, ""}});
    for (const std::string arguments :
         {"a* c d*", "c - missing folder a* < c", "< c", "-c list", "-c < list", "--check list mixed",
          "-c mixed < list", "-c < mixed", "-c ends", "-c none list", "-c missing ends", "-c < none"})
        folder.expect({{"{ md5sum " + arguments +
                            "; echo $?; } 2>&1 | sed 's/^md5sum: /vorn md5: /' > expected; "
                            "{ $vorn md5 " +
                            arguments + "; echo $?; } 2>&1 | diff expected -",
                        0, ""}});
    folder.expect({{"$vorn md5 -c folder 2> /dev/null", 1, ""},
                   {"$vorn md5 - < /dev/null > /dev/full", 3, "vorn: cannot write to standard output\n"}});
}

TEST(VornScramble, ScramblesUnderAPhraseThatIsReadFromElsewhere) {
    const harness::scratch folder("vorn=$PWD/vorn; scramble() { \"$vorn\" scramble \"$@\"; }; cd {}; ");
    const char by_another_program[] = "\xf8\x78\x3c\x0b\x11\x6b\x65\x14\xbe\x2d\x18\x00\x0e\x5c\x8e\x64\x7b\x6c"
                                      "\x5c\x04\x24\x2f\x8c\x8b\x5d\xbc\xfa\x6d\x39\x62\x9e\x09\x43\xe7\xbb\x55";
    folder.write("foreign", {by_another_program, sizeof by_another_program - 1});
    folder.expect({
        {"printf 'secret\nmore' > phrase; head -c 300000 /dev/urandom > data", 0, ""},
        {"scramble -d --pass-file phrase foreign", 0, "attack at dawn, by the river"},
        {"scramble --pass-file phrase data > scrambled; cmp -s data scrambled", 1, ""},
        {"printf secret | scramble -d --pass-fd 0 scrambled | cmp - data", 0, ""},
        {"scramble -d --pass-fd 7 - 7< phrase < scrambled | cmp - data", 0, ""},
        {"{ echo secret; cat scrambled; } | scramble -d --pass-file - | cmp - data", 0, ""},
        {": | scramble --pass-file phrase | scramble -d --pass-file phrase", 0, ""},
        {"printf 7bytes. | scramble -d --pass-file phrase", 1,
         "vorn scramble: standard input: too short to have been scrambled\n"},
        {"scramble data", 2, "vorn scramble: --pass-file or --pass-fd must say where the pass phrase is, try --help\n"},
        {"scramble --pass-fd 999 data", 3, "vorn scramble: --pass-fd: Bad file descriptor\n"},
        {"echo | scramble --pass-file - data", 3, "vorn scramble: -: the pass phrase is empty\n"},
        {"scramble --pass-file /dev/null data", 3, "vorn scramble: /dev/null: the pass phrase is empty\n"},
        {"scramble --pass-file /dev/zero data", 3,
         "vorn scramble: /dev/zero: the pass phrase is longer than 4096 bytes\n"},
        {"scramble --pass-file none data", 3, "vorn scramble: none: No such file or directory\n"},
        {"scramble --pass-file phrase .", 3, "vorn scramble: .: Is a directory\n"},
        {"scramble --pass-file phrase data > /dev/full", 3,
         "vorn scramble: write: IOERROR_WRITE:errno=28<No space left on device>\n"},
    });
}

} // namespace
