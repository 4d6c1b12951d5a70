#include "vesta/files/RootPath.h"

#include <algorithm>

#include "cairn/Exception.h"

namespace Vesta {

namespace {

void requirePart(const std::string& part, const std::string& whole) {
  if (part.empty() || part == "." || part == ".." || part.size() > 200 ||
      part.find('\0') != std::string::npos) {
    throw Cairn::Exception("table path \"" + whole +
                           "\": expected parts of 1 to 200 characters other than \".\" "
                           "and \"..\", joined by single \"/\"; got part \"" +
                           part + "\"");
  }
}

}  // namespace

RootPath::RootPath(std::string rootFolder, std::string path, std::string collection)
    : rootFolder_(std::move(rootFolder)), path_(std::move(path)), collection_(std::move(collection)) {
  if (rootFolder_.empty())
    throw Cairn::Exception("table path \"" + path_ + "\": expected a root folder, got none");
  for (std::size_t begin = 0; begin <= path_.size();) {
    const std::size_t end = std::min(path_.find('/', begin), path_.size());
    requirePart(path_.substr(begin, end - begin), path_);
    begin = end + 1;
  }
  requirePart(collection_, collection_);
  if (collection_.find('/') != std::string::npos) {
    throw Cairn::Exception("collection \"" + collection_ + "\": expected a name without \"/\"");
  }
}

std::string RootPath::vestaName() const {
  std::string name = std::string(kSocketNamePrefix) + "." + path_ + "." + collection_;
  std::replace(name.begin(), name.end(), '/', '.');
  return name;
}

}  // namespace Vesta
