// Tests of files that are read, or refused, with a few words.
#ifndef READING_TEST_H
#define READING_TEST_H

#include "fixtures.h"
#include "sample_file.h"

class ReadingTest : public FileTest
{
protected:
    // The body of a file whose reading says just this.
    ZELDATA* opened_with(const SampleFile& file, const std::string& warnings)
    {
        ZELDATA* db = nullptr;
        EXPECT_EQ(errors_of([&] { db = open(file); }), warnings);
        return db ? db : opened(file);
    }
    template <typename File> std::string refusal_of(const File& file)
    {
        return errors_of([&] { EXPECT_EQ(open(file), nullptr); });
    }
};

#endif
