// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "libvask_external_device.h"
#include "log_capture.h"
#include "process.h"

using vask_test::log_capture;
using vask_test::temp_dir;

namespace {

void write_file(const std::string &path, const std::string &content)
{
    FILE *file = fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr) << path;
    ASSERT_EQ(fwrite(content.data(), 1, content.size(), file), content.size());
    ASSERT_EQ(fclose(file), 0);
}

bool exists(const std::string &path)
{
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

size_t count_slashes(const std::string &text)
{
    size_t n = 0;
    for (char c : text)
        n += c == '/' ? 1 : 0;
    return n;
}

// Asserts that exactly one line was logged, from the utilities, with these fields.
void expect_one_line(log_capture &capture, int level, const std::string &function, const std::string &message)
{
    auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, ED_LOG_MODULE);
    EXPECT_EQ(lines[0].level, level);
    EXPECT_EQ(lines[0].source, "utils");
    EXPECT_EQ(lines[0].function, function);
    EXPECT_EQ(lines[0].message, message);
}

} // namespace

// ---- ReplaceString ----

TEST(UtilString, ReplaceString_ShouldReplaceEveryOccurrence)
{
    std::string text = "one two one three one";
    EXPECT_EQ(ReplaceString(&text, "one", "1"), 0);
    EXPECT_EQ(text, "1 two 1 three 1");
}

TEST(UtilString, ReplaceString_ShouldNotSearchTheInsertedText)
{
    std::string text = "aaa";
    EXPECT_EQ(ReplaceString(&text, "a", "aa"), 0);
    EXPECT_EQ(text, "aaaaaa");
}

TEST(UtilString, ReplaceString_ShouldRemoveOccurrencesWhenToIsEmpty)
{
    std::string text = "file:///tmp/file://x";
    EXPECT_EQ(ReplaceString(&text, "file://", ""), 0);
    EXPECT_EQ(text, "/tmp/x");
}

TEST(UtilString, ReplaceString_ShouldChangeNothingForAnEmptyFrom)
{
    std::string text = "abc";
    EXPECT_EQ(ReplaceString(&text, "", "x"), 0);
    EXPECT_EQ(text, "abc");
}

TEST(UtilString, ReplaceString_ShouldLeaveTextWithoutOccurrenceUnchanged)
{
    std::string text = "abc";
    EXPECT_EQ(ReplaceString(&text, "abcd", "x"), 0);
    EXPECT_EQ(text, "abc");
}

TEST(UtilString, ReplaceString_ShouldRefuseANullString)
{
    EXPECT_EQ(ReplaceString(nullptr, "a", "b"), -1);
}

// ---- MatchString ----

TEST(UtilString, MatchString_ShouldMatchAnywhereInTheText)
{
    EXPECT_EQ(MatchString("b+c", "aabbbcdd"), 0);
    EXPECT_EQ(MatchString("^ttyUSB[0-9]$", "ttyUSB3"), 0);
}

TEST(UtilString, MatchString_ShouldReturnMinusOneWithoutAMatch)
{
    EXPECT_EQ(MatchString("^b", "abc"), -1);
    EXPECT_EQ(MatchString("[0-9]", "abc"), -1);
}

TEST(UtilString, MatchString_ShouldBeCaseSensitive)
{
    EXPECT_EQ(MatchString("ABC", "abc"), -1);
}

TEST(UtilString, MatchString_ShouldReturnMinusOneForAPatternThatDoesNotCompile)
{
    EXPECT_EQ(MatchString("(", "((("), -1);
}

TEST(UtilString, MatchString_ShouldReturnMinusOneForTextThatIsNotUtf8)
{
    EXPECT_EQ(MatchString("abc", std::string("\xff\xfe") + "abc"), -1);
    EXPECT_EQ(MatchString(std::string("\xff"), "abc"), -1);
}

// ---- EraseSubStr ----

TEST(UtilString, EraseSubStr_ShouldEraseOnlyTheFirstOccurrence)
{
    std::string text = "a-b-c";
    EraseSubStr(text, "-");
    EXPECT_EQ(text, "ab-c");
}

TEST(UtilString, EraseSubStr_ShouldDoNothingWhenAbsent)
{
    std::string text = "abc";
    EraseSubStr(text, "x");
    EXPECT_EQ(text, "abc");
}

// ---- ConcateFilePath ----

TEST(UtilString, ConcateFilePath_ShouldAddASlashToAnEmptyDirectory)
{
    EXPECT_EQ(ConcateFilePath("", "x"), "/x");
}

TEST(UtilString, ConcateFilePath_ShouldNotDoubleATrailingSlash)
{
    EXPECT_EQ(ConcateFilePath("/tmp/", "x"), "/tmp/x");
}

TEST(UtilString, ConcateFilePath_ShouldInsertASlash)
{
    EXPECT_EQ(ConcateFilePath("/tmp", "x"), "/tmp/x");
}

TEST(UtilString, ConcateFilePath_ShouldKeepALeadingSlashOfTheName)
{
    EXPECT_EQ(ConcateFilePath("/tmp/", "/x"), "/tmp//x");
}

// ---- AppendFileUri ----

TEST(UtilString, AppendFileUri_ShouldInsertTextBeforeTheLastComponent)
{
    EXPECT_EQ(AppendFileUri("file:///a/b.jpg", "thumb_"), "file:///a/thumb_b.jpg");
}

TEST(UtilString, AppendFileUri_ShouldCutAfterTheFirstCharacterWithoutASlash)
{
    EXPECT_EQ(AppendFileUri("abc", "_"), "a_bc");
}

TEST(UtilString, AppendFileUri_ShouldNeverExamineIndexZero)
{
    EXPECT_EQ(AppendFileUri("/abc", "_"), "/_abc");
}

TEST(UtilString, AppendFileUri_ShouldAppendAfterATrailingSlash)
{
    EXPECT_EQ(AppendFileUri("/a/", "x"), "/a/x");
}

TEST(UtilString, AppendFileUri_ShouldReturnTheTextForAnEmptyUri)
{
    EXPECT_EQ(AppendFileUri("", "text"), "text");
}

// ---- GetFilepathFromUri ----

TEST(UtilString, GetFilepathFromUri_ShouldStripTheFileScheme)
{
    std::string path = "old";
    EXPECT_EQ(GetFilepathFromUri("file:///tmp/a", &path), 0);
    EXPECT_EQ(path, "/tmp/a");
}

TEST(UtilString, GetFilepathFromUri_ShouldCopyAUriOfAnotherScheme)
{
    std::string path = "old";
    EXPECT_EQ(GetFilepathFromUri("http://host/a.jpg", &path), 0);
    EXPECT_EQ(path, "http://host/a.jpg");
}

TEST(UtilString, GetFilepathFromUri_ShouldCompareTheSchemeExactly)
{
    std::string path;
    EXPECT_EQ(GetFilepathFromUri("FILE:///tmp/a", &path), 0);
    EXPECT_EQ(path, "FILE:///tmp/a");
}

TEST(UtilString, GetFilepathFromUri_ShouldCopyAPathWithoutScheme)
{
    std::string path = "old";
    EXPECT_EQ(GetFilepathFromUri("/tmp/a", &path), 0);
    EXPECT_EQ(path, "/tmp/a");
}

TEST(UtilString, GetFilepathFromUri_ShouldGiveAnEmptyPathForAShortFileUri)
{
    std::string path = "old";
    EXPECT_EQ(GetFilepathFromUri("file:", &path), 0);
    EXPECT_EQ(path, "");
    path = "old";
    EXPECT_EQ(GetFilepathFromUri("file:a", &path), 0);
    EXPECT_EQ(path, "");
}

TEST(UtilString, GetFilepathFromUri_ShouldRefuseANullPath)
{
    EXPECT_EQ(GetFilepathFromUri("file:///tmp/a", nullptr), -1);
}

// ---- GetFileExt ----

TEST(UtilString, GetFileExt_ShouldReturnTheLastExtension)
{
    EXPECT_EQ(GetFileExt("a.tar.gz"), "gz");
    EXPECT_EQ(GetFileExt("/tmp/photo.jpg"), "jpg");
}

TEST(UtilString, GetFileExt_ShouldDropTheFirstCharacterOfANameWithoutDot)
{
    EXPECT_EQ(GetFileExt("photo"), "hoto");
    EXPECT_EQ(GetFileExt("abc"), "bc");
}

TEST(UtilString, GetFileExt_ShouldNotTakeALeadingDotAsExtension)
{
    EXPECT_EQ(GetFileExt(".bashrc"), "bashrc");
}

TEST(UtilString, GetFileExt_ShouldReturnEmptyForANameEndingInADot)
{
    EXPECT_EQ(GetFileExt("x."), "");
}

TEST(UtilString, GetFileExt_ShouldReturnEmptyForAnEmptyOrOneCharacterPath)
{
    EXPECT_EQ(GetFileExt(""), "");
    EXPECT_EQ(GetFileExt("a"), "");
    EXPECT_EQ(GetFileExt("."), "");
}

TEST(UtilString, GetFileExt_ShouldCountADotInADirectoryName)
{
    EXPECT_EQ(GetFileExt("/a.d/f"), "d/f");
}

// ---- ReplaceFileExt ----

TEST(UtilString, ReplaceFileExt_ShouldReplaceTheExtensionAndKeepTheDot)
{
    EXPECT_EQ(ReplaceFileExt("a.b", "c"), "a.c");
    EXPECT_EQ(ReplaceFileExt("a/b.jpg", "png"), "a/b.png");
    EXPECT_EQ(ReplaceFileExt("a.tar.gz", "xz"), "a.tar.xz");
}

TEST(UtilString, ReplaceFileExt_ShouldKeepOnlyTheFirstCharacterWithoutDot)
{
    EXPECT_EQ(ReplaceFileExt("abc", "png"), "apng");
    EXPECT_EQ(ReplaceFileExt(".bashrc", "x"), ".x");
}

TEST(UtilString, ReplaceFileExt_ShouldReturnEmptyForAnEmptyPath)
{
    EXPECT_EQ(ReplaceFileExt("", "c"), "");
}

// ---- IsFile and IsDir ----

TEST(UtilString, IsFile_ShouldAcceptAPlainPathAndAFileUri)
{
    temp_dir dir;
    std::string path = dir.path() + "/f.txt";
    write_file(path, "x");
    EXPECT_TRUE(IsFile(path));
    EXPECT_TRUE(IsFile("file://" + path));
}

TEST(UtilString, IsFile_ShouldBeTrueForADirectory)
{
    temp_dir dir;
    EXPECT_TRUE(IsFile(dir.path()));
}

TEST(UtilString, IsFile_ShouldBeFalseForAMissingPath)
{
    temp_dir dir;
    EXPECT_FALSE(IsFile(dir.path() + "/missing"));
    EXPECT_FALSE(IsFile("file://" + dir.path() + "/missing"));
}

TEST(UtilString, IsDir_ShouldBeTrueOnlyForADirectory)
{
    temp_dir dir;
    std::string file = dir.path() + "/f.txt";
    write_file(file, "x");
    EXPECT_TRUE(IsDir(dir.path()));
    EXPECT_FALSE(IsDir(file));
    EXPECT_FALSE(IsDir(dir.path() + "/missing"));
}

// ---- Remove ----

TEST(UtilString, Remove_ShouldReturnZeroAndLogNothingForAMissingPath)
{
    temp_dir dir;
    log_capture capture;
    EXPECT_EQ(Remove(dir.path() + "/missing"), 0);
    EXPECT_TRUE(capture.lines().empty());
}

TEST(UtilString, Remove_ShouldRemoveAFile)
{
    temp_dir dir;
    std::string path = dir.path() + "/f.txt";
    write_file(path, "x");
    EXPECT_EQ(Remove(path), 0);
    EXPECT_FALSE(exists(path));
}

TEST(UtilString, Remove_ShouldRemoveAnEmptyDirectory)
{
    temp_dir dir;
    std::string path = dir.path() + "/d";
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    EXPECT_EQ(Remove(path), 0);
    EXPECT_FALSE(exists(path));
}

TEST(UtilString, Remove_ShouldLogAndReturnMinusOneForADirectoryThatIsNotEmpty)
{
    temp_dir dir;
    std::string path = dir.path() + "/d";
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    write_file(path + "/f", "x");
    log_capture capture;
    EXPECT_EQ(Remove(path), -1);
    EXPECT_TRUE(exists(path + "/f"));
    expect_one_line(capture, 1, "Remove", "Failed to remove " + path + " (-1)");
}

// ---- Rename ----

TEST(UtilString, Rename_ShouldMoveTheFile)
{
    temp_dir dir;
    std::string from = dir.path() + "/a";
    std::string to = dir.path() + "/b";
    write_file(from, "content");
    log_capture capture;
    EXPECT_EQ(Rename(from, to), 0);
    EXPECT_FALSE(exists(from));
    EXPECT_EQ(FileSize(to), 7);
    EXPECT_TRUE(capture.lines().empty());
}

TEST(UtilString, Rename_ShouldLogTheErrnoOnFailure)
{
    temp_dir dir;
    std::string from = dir.path() + "/missing";
    std::string to = dir.path() + "/b";
    log_capture capture;
    EXPECT_EQ(Rename(from, to), -1);
    expect_one_line(capture, 0, "Rename",
                    "Rename file " + from + " to " + to + " failed. errno=" + std::to_string(ENOENT));
}

// ---- FileSize ----

TEST(UtilString, FileSize_ShouldReturnTheSizeInBytes)
{
    temp_dir dir;
    std::string path = dir.path() + "/f";
    write_file(path, std::string(1234, 'x'));
    EXPECT_EQ(FileSize(path), 1234);
    write_file(path, "");
    EXPECT_EQ(FileSize(path), 0);
}

TEST(UtilString, FileSize_ShouldReturnTheSizeOfALinkItself)
{
    temp_dir dir;
    std::string target = dir.path() + "/target";
    std::string link = dir.path() + "/link";
    write_file(target, std::string(1000, 'x'));
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    EXPECT_EQ(FileSize(link), static_cast<int64_t>(target.size()));
}

TEST(UtilString, FileSize_ShouldReturnMinusOneForAMissingPath)
{
    temp_dir dir;
    EXPECT_EQ(FileSize(dir.path() + "/missing"), -1);
}

// ---- RemoveTrailingChar ----

TEST(UtilString, RemoveTrailingChar_ShouldLeaveEmptyWhenAllCharactersMatch)
{
    std::string text = "///";
    EXPECT_EQ(RemoveTrailingChar('/', &text), 0);
    EXPECT_EQ(text, "");
}

TEST(UtilString, RemoveTrailingChar_ShouldStopAtTheFirstOtherCharacter)
{
    std::string text = "/a/b//";
    EXPECT_EQ(RemoveTrailingChar('/', &text), 0);
    EXPECT_EQ(text, "/a/b");
    text = "line\n";
    EXPECT_EQ(RemoveTrailingChar('/', &text), 0);
    EXPECT_EQ(text, "line\n");
}

TEST(UtilString, RemoveTrailingChar_ShouldAcceptAnEmptyStringAndRefuseNull)
{
    std::string text;
    EXPECT_EQ(RemoveTrailingChar('/', &text), 0);
    EXPECT_EQ(text, "");
    EXPECT_EQ(RemoveTrailingChar('/', nullptr), -1);
}

// ---- MakeDirByFilePath and MakeDirByFileUri ----

// A mount point "<temp>/mnt/usb" and the depth that makes it the anchor, as /mnt/usb is for depth 2.
struct mount_layout {
    temp_dir root;
    std::string mount = root.path() + "/mnt/usb";
    std::string file = mount + "/a/b/f.txt";
    int depth = static_cast<int>(count_slashes(root.path())) + 2;
};

TEST(UtilString, MakeDirByFilePath_ShouldRefuseWhenTheAnchorIsMissing)
{
    mount_layout layout;
    ASSERT_EQ(mkdir((layout.root.path() + "/mnt").c_str(), 0755), 0);
    EXPECT_EQ(MakeDirByFilePath(layout.file, 0755, layout.depth), -1);
    EXPECT_FALSE(exists(layout.mount));
}

TEST(UtilString, MakeDirByFilePath_ShouldRefuseWhenTheAnchorIsAFile)
{
    mount_layout layout;
    ASSERT_EQ(mkdir((layout.root.path() + "/mnt").c_str(), 0755), 0);
    write_file(layout.mount, "x");
    EXPECT_EQ(MakeDirByFilePath(layout.file, 0755, layout.depth), -1);
}

TEST(UtilString, MakeDirByFilePath_ShouldCreateTheDirectoriesBelowAnExistingAnchor)
{
    mount_layout layout;
    ASSERT_EQ(mkdir((layout.root.path() + "/mnt").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(layout.mount.c_str(), 0755), 0);
    EXPECT_EQ(MakeDirByFilePath(layout.file, 0755, layout.depth), 0);
    EXPECT_TRUE(IsDir(layout.mount + "/a/b"));
    EXPECT_FALSE(exists(layout.file));
}

TEST(UtilString, MakeDirByFilePath_ShouldUseTheWholeDirectoryAsAnchorWhenItHasDepthSlashes)
{
    mount_layout layout;
    // "<mount>/f.txt": its directory is the mount point itself, with exactly `depth` slashes.
    EXPECT_EQ(MakeDirByFilePath(layout.mount + "/f.txt", 0755, layout.depth), -1);
    ASSERT_EQ(mkdir((layout.root.path() + "/mnt").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(layout.mount.c_str(), 0755), 0);
    EXPECT_EQ(MakeDirByFilePath(layout.mount + "/f.txt", 0755, layout.depth), 0);
}

TEST(UtilString, MakeDirByFilePath_ShouldRefuseAPathTooShallowForTheDepth)
{
    mount_layout layout;
    ASSERT_EQ(mkdir((layout.root.path() + "/mnt").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(layout.mount.c_str(), 0755), 0);
    // The directory "<mount>" has exactly `depth` slashes: too few for depth + 1.
    EXPECT_EQ(MakeDirByFilePath(layout.mount + "/f.txt", 0755, layout.depth + 1), -1);
    EXPECT_EQ(MakeDirByFilePath("f.txt", 0755, 1), -1);
}

TEST(UtilString, MakeDirByFilePath_ShouldCreateTheWholeChainForDepthZero)
{
    mount_layout layout;
    EXPECT_EQ(MakeDirByFilePath(layout.file, 0755, 0), 0);
    EXPECT_TRUE(IsDir(layout.mount + "/a/b"));
    EXPECT_FALSE(exists(layout.file));
}

TEST(UtilString, MakeDirByFilePath_ShouldCreateTheWholeChainForANegativeDepth)
{
    mount_layout layout;
    EXPECT_EQ(MakeDirByFilePath(layout.file, 0755, -3), 0);
    EXPECT_TRUE(IsDir(layout.mount + "/a/b"));
}

TEST(UtilString, MakeDirByFilePath_ShouldApplyTheMode)
{
    mount_layout layout;
    EXPECT_EQ(MakeDirByFilePath(layout.file, 0700, 0), 0);
    struct stat info;
    ASSERT_EQ(stat((layout.mount + "/a/b").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
}

TEST(UtilString, MakeDirByFilePath_ShouldSucceedWhenTheDirectoryExists)
{
    temp_dir dir;
    EXPECT_EQ(MakeDirByFilePath(dir.path() + "/f.txt", 0755, 0), 0);
}

TEST(UtilString, MakeDirByFilePath_ShouldFailWhenAFileBlocksTheChain)
{
    temp_dir dir;
    write_file(dir.path() + "/a", "x");
    EXPECT_EQ(MakeDirByFilePath(dir.path() + "/a/b/f.txt", 0755, 0), -1);
}

TEST(UtilString, MakeDirByFileUri_ShouldCreateTheDirectoryOfAFileUri)
{
    mount_layout layout;
    ASSERT_EQ(mkdir((layout.root.path() + "/mnt").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(layout.mount.c_str(), 0755), 0);
    EXPECT_EQ(MakeDirByFileUri("file://" + layout.file, 0755, layout.depth), 0);
    EXPECT_TRUE(IsDir(layout.mount + "/a/b"));
}

TEST(UtilString, MakeDirByFileUri_ShouldApplyTheAnchorRule)
{
    mount_layout layout;
    EXPECT_EQ(MakeDirByFileUri("file://" + layout.file, 0755, layout.depth), -1);
    EXPECT_FALSE(exists(layout.root.path() + "/mnt"));
}

TEST(UtilString, MakeDirByFileUri_ShouldUseAPlainPathAsItIs)
{
    mount_layout layout;
    EXPECT_EQ(MakeDirByFileUri(layout.file, 0755, 0), 0);
    EXPECT_TRUE(IsDir(layout.mount + "/a/b"));
}
