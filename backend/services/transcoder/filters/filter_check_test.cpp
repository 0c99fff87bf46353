#include "backend/services/transcoder/filters/filter_check.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "backend/collaborators/config.h"
#include "tests/support/temporary_directory.h"

namespace weir {
namespace {

/// ROOT in a graph stands for the only file root, which has the file "a" and links out of it.
class FilterCheckTest : public testing::Test {
 protected:
  FilterCheckTest() {
    std::filesystem::create_directories(directory_.path() / "root/fonts");
    std::ofstream(directory_.path() / "root/a") << "text";
    std::ofstream(directory_.path() / "rooted") << "text";
    std::filesystem::create_symlink("/etc/hostname", directory_.path() / "root/link");
    std::filesystem::create_symlink(directory_.path() / "root", directory_.path() / "root/loop");
    Config::FILE_ROOTS = {root_};
  }
  ~FilterCheckTest() override { Config::FILE_ROOTS.clear(); }

  std::string find_fault(const std::string& graph) const {
    return find_filter_fault(std::regex_replace(graph, std::regex("ROOT"), root_));
  }

  const test::TemporaryDirectory directory_;
  const std::string root_ = directory_.path() / "root";
};

TEST_F(FilterCheckTest, AllowsWhatOnlyChangesVideoAndAudio) {
  for (const char* graph : {
           " hflip , scale@small = w=640:h=-2:flags=lanczos:threads=2 ",
           "[0:v][a\\]b]overlay=x=10:enable='between(t,1,2)'['x]y'];[c]hflip",
           "drawtext=text='metadata, zmq; ladspa':fontsize=(h/10),hflip",
           "drawtext=textfile=ROOT/a:reload=1",
           "drawtext=textfile='ROOT/loop/a'",
           "subtitles=f=ROOT/fonts/../a:fontsdir=ROOT/fonts:force_style='FontSize=20,Bold=1'",
           "aresample=async=1:osr=48000,pan=stereo|c0=FL|c1=FR",
           "sendcmd=c='1.0 hue s 0',hue",
       })
    EXPECT_EQ(find_fault(graph), "") << graph;
}

TEST_F(FilterCheckTest, RefusesTheRestHoweverItIsWritten) {
  const std::pair<const char*, const char*> cases[] = {
      {"metadata=print:file=/x", "the filter \"metadata\" is not allowed"},
      {"['a]b']metadata=mode=print:file=/x", "the filter \"metadata\" is not allowed"},
      {"sws_flags=[;metadata=mode=print:file=/x", "\"sws_flags=\" is not allowed; set the flags of each filter"},
      {"hflip[a\\];b];[a\\];b]metadata", "the filter \"metadata\" is not allowed"},
      {"[0:v] [1:v]ladspa@a=file=x.so[out]", "the filter \"ladspa\" is not allowed"},
      {"drawtext=text='a'\\'',zmq,hflip", "it ends within quotes or after a backslash"},
      {"drawtext=text='a\\',zmq,hflip", "the filter \"zmq\" is not allowed"},
      {"hflip;\n meta\\d'ata'=print", "the filter \"metadata\" is not allowed"},
      {"movie=http\\\\://h/x", "the filter \"movie\" is not allowed"},
      {"", "the filter \"\" is not allowed"},
      {"[]hflip", "a label is empty or not closed by \"]\""},
      {"hflip[a]zmq", "unexpected text after a filter: \"zmq\""},
      {"curves=preset=vintage:'plot'=/x", "the option \"plot\" of the filter \"curves\" is not allowed"},
      {"curves=vintage:a:b:c:d:e:f:g:h:i:j:/x",
       "name the options of the filter \"curves\", as in curves=option=vintage"},
      {"scale=/w=/x", "the option \"/w\" of the filter \"scale\" is not allowed"},
      {"scale=w=1:2", "an option of the filter \"scale\" has no name: \"2\""},
      {"drawtext=textfile=/etc/hostname", "/etc/hostname is not below ROOT (--file-root)"},
      {"drawtext=text=a: \n textfile = '/etc/host'name", "/etc/hostname is not below ROOT (--file-root)"},
      {"drawtext=textfile=ROOT/a:textfile=/etc/hostname", "/etc/hostname is not below ROOT (--file-root)"},
      {"drawtext=fontfile=ROOT/../rooted", "ROOT/../rooted is not below ROOT (--file-root)"},
      {"ass=ROOT/a", "name the options of the filter \"ass\", as in ass=option=ROOT/a"},
      {"ass=f=ROOT/link", "ROOT/link is not below ROOT (--file-root)"},
      {"ass=f=ROOT/a:fontsdir=/usr", "/usr is not below ROOT (--file-root)"},
      {"lut3d=file=ROOT/absent", "ROOT/absent: No such file or directory"},
      {"lut3d=file=", "\"\" is not an absolute path"},
      {"removelogo=f=http\\\\://h/x.png", "\"http://h/x.png\" is not an absolute path"},
      {"sendcmd=f=ROOT/a,drawtext=text=a",
       "the filter \"drawtext\" cannot be used beside sendcmd, which could change its files"},
  };
  for (const auto& [graph, fault] : cases)
    EXPECT_EQ(find_fault(graph), std::regex_replace(fault, std::regex("ROOT"), root_)) << graph;
}

}  // namespace
}  // namespace weir
