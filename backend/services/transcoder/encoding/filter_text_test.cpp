#include "backend/services/transcoder/encoding/filter_text.h"

#include <gtest/gtest.h>

namespace weir {
namespace {

TEST(FilterTextTest, FindsForbiddenFiltersAsFFmpegWouldReadThem) {
  struct Case {
    const char* graph;
    const char* found;
  };
  const Case cases[] = {
      {"", ""},
      {"hflip,scale=640:-2", ""},
      {"drawtext=text='metadata, zmq; ladspa',hflip", ""},
      {"drawtext=text=a\\,metadata", ""},
      {"metadata=print:file=/etc/x", "metadata"},
      {"hflip, metadata = print", "metadata"},
      {"[0:v] [1:v]ladspa@a=file=x.so[out]", "ladspa"},
      {"hflip[x];[x]zmq", "zmq"},
      {"meta\\data=print", "metadata"},
      {"'metadata'=print", "metadata"},
      {"hflip;\n lv2=p", "lv2"},
      {"drawtext=text='a'',zmq,hflip", ""},
      {"scale=1:'2',frei0r=x", "frei0r"},
      {"drawtext=text='", ""},
      {"[[[", ""},
      {"hflip\\", ""},
  };
  for (const Case& c : cases) EXPECT_EQ(find_forbidden_filter(c.graph), c.found) << c.graph;
}

}  // namespace
}  // namespace weir
