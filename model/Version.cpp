// Build identification record. Each line is "Id: ", the label left-justified
// in 18 columns, the value and one blank.
#include "model/Version.h"

#include <iostream>

namespace OrvaneLumetCodeGen {

namespace {

const char* const FileDescription = "Id: File Description   ";
const char* const FileVersion = "Id: File Version      2018 ";
const char* const ProductName = "Id: Product Name      Tessel ";
const char* const ProductVersion = "Id: Product Version   2018 ";
const char* const CompanyName = "Id: Company Name       ";
const char* const LegalCopyright = "Id: Copyright          ";

}  // namespace

void version() {
    for (const char* line :
         {FileDescription, FileVersion, ProductName, ProductVersion, CompanyName, LegalCopyright})
        std::cout << line << std::endl;
}

}  // namespace OrvaneLumetCodeGen
