#!/usr/bin/env python3
"""The checks of translations find what they are for."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import translations

HEADER = 'msgid ""\nmsgstr ""\n"Plural-Forms: nplurals=2; plural=(n > 1);\\n"\n\n'


class TranslationsTest(unittest.TestCase):
    def faults(self, entry, language="de", header=HEADER):
        return list(translations.faults_of_language(language, header + entry))

    def test_whole_texts_have_no_fault(self):
        self.assertEqual(self.faults('msgid "{} of {}"\nmsgstr "{1}: {0}"\n'), [])
        self.assertEqual(self.faults('msgid "{} of"\n" {}"\nmsgstr ""\n"{} von {}"\n'), [])
        self.assertEqual(
            self.faults('msgid "{} a"\nmsgid_plural "{} b"\nmsgstr[0] "{} c"\nmsgstr[1] "{} d"\n'), [])

    def test_fields_may_have_names(self):
        self.assertEqual(self.faults('msgid "{one}: {two} %"\nmsgstr "{two} % {one}"\n'), [])
        self.assertIn("other fields", self.faults('msgid "{one}"\nmsgstr "{eins}"\n')[0])

    def test_each_fault_is_found(self):
        rows = {
            'msgid "a"\nmsgstr ""\n': "not translated",
            '#, fuzzy\nmsgid "a"\nmsgstr "b"\n': "fuzzy",
            '#~ msgid "a"\n#~ msgstr "b"\n': "in no source",
            'msgid "{} a"\nmsgstr "b"\n': "other fields",
            'msgid "{} a {}"\nmsgstr "{0} {0}"\n': "other fields",
            'msgid "{:.0f} a"\nmsgstr "{} b"\n': "other fields",
            'msgid "{} a"\nmsgid_plural "{} b"\nmsgstr[0] "{} c"\n': "plural forms",
            'msgid "a"\nmsgstr "b %s"\n': "printf",
            'msgid "a"\nmsgstr "\\"b\\""\n': "quotes",
            'msgid "@OPTIONS a@"\nmsgstr "@OPTIONS b@"\n': "other places",
        }
        for entry, fault in rows.items():
            found = self.faults(entry)
            self.assertEqual(len(found), 1, (entry, found))
            self.assertIn(fault, found[0])

    def test_french_marks_are_kept_beside_their_words(self):
        self.assertEqual(self.faults('msgid "a"\nmsgstr "b\u00a0; c\u00a0?"\n', "fr"), [])
        for text in ("b; c", "b ; c", "b : c", "b?"):
            self.assertEqual(len(self.faults(f'msgid "a"\nmsgstr "{text}"\n', "fr")), 1, text)

    def test_a_header_without_plural_forms_is_a_fault(self):
        self.assertIn("plural", self.faults("", header='msgid ""\nmsgstr "Language: de\\n"\n\n')[0])


if __name__ == "__main__":
    unittest.main()
