// The commands of vorn that digest files.
#include "support/harness.h"
#include "support/program.h"

namespace {

// In a folder with files of odd names and with lists of them, good and bad.
TEST(VornMd5, PrintsAndChecksAsMd5sumDoes) {
    const harness::scratch folder;
    const std::string abc = "900150983cd24fb0d6963f7d28e17f72", upper = "900150983CD24FB0D6963F7D28E17F72";
    std::string expected, output;
    if (folder.run("md5sum --version | grep ' 9[.]'", &output) != 0) GTEST_SKIP() << "md5sum is not of coreutils 9";
    for (const char *const name : {"a\\b", "a\nb", "d\rd"}) folder.write(name, "abc");
    folder.write("c", std::string(200'001, '\0'));
    folder.write("mixed", "# " + abc + "  c\n\n \t" + upper + " *a\\b\n\\" + abc + "  a\\nb\n\\" + abc + "  a\\xb\n\\" +
                              abc + "  a\\\n" + abc + "  c\n" + abc + "  missing\n" + abc + "  folder\n" + abc +
                              "0  c\n" + abc.substr(1) + "g  c\n" + abc.substr(1) + "  c\n" + abc + "  \n" + abc +
                              "  -\n");
    folder.write("ends", abc + "  a\\b\r\n" + abc + "  a\\b");
    folder.write("none", "# no digest\n");
    folder.expect("cd {} && mkdir folder && md5sum a* c d* > list", 0, "");
    for (const char *const arguments :
         {"a* c d*", "c - missing folder a* < c", "< c", "-c list", "-c < list", "--check list mixed",
          "-c mixed < list", "-c < mixed", "-c ends", "-c none list", "-c missing ends", "-c < none"}) {
        const int code = folder.run("cd {} && md5sum " + std::string(arguments), &expected);
        for (size_t i; (i = expected.find("md5sum: ")) != std::string::npos;) expected.replace(i, 8, "vorn md5: ");
        EXPECT_EQ(folder.run("cd {} && \"$OLDPWD\"/vorn md5 " + std::string(arguments), &output), code) << arguments;
        EXPECT_EQ(output, expected) << arguments;
    }
    folder.expect("./vorn md5 -c {}/folder 2> /dev/null", 1, "");
    folder.expect("./vorn md5 - < /dev/null > /dev/full", 3, "vorn: cannot write to standard output\n");
}

} // namespace
