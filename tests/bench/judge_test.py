#!/usr/bin/env python3
"""How bench results become rows, and what is a goal missed or a regression. Times nothing."""
import contextlib
import io
import json
import os
import tempfile
import unittest

import judge


def result(measure, ours, limit=None, **more):
    one = {"measure": measure, "unit": "ns", "ours": ours, **more}
    if limit is not None:
        one["limit"] = limit
    return one


class Rows(unittest.TestCase):
    def test_ratio_is_of_the_medians(self):
        (row,) = judge.rows_of([result("a", [10, 30, 20, 900], [10, 11, 9, 10])])
        self.assertEqual(row["ours"], 25)
        self.assertEqual(row["limit"], 10)
        self.assertEqual(row["ratio"], 2.5)
        self.assertLess(row["spread"][0], row["spread"][1])

    def test_a_figure_without_a_limit_has_no_ratio(self):
        (row,) = judge.rows_of([result("a", [7])])
        self.assertEqual((row["ours"], row["limit"], row["ratio"]), (7, None, None))

    def test_a_limit_of_nothing_divides_nothing(self):
        (row,) = judge.rows_of([result("a", [3], [0])])
        self.assertIsNone(row["ratio"])
        self.assertEqual(judge.score(row), 3)

    def test_allocations_are_rows_of_their_own(self):
        rows = judge.rows_of([result("a", [1], [1], allocations=[0, 2, 2])])
        self.assertEqual(rows[1]["measure"], "heap allocations: a")
        self.assertEqual(rows[1]["ours"], 2)

    def test_silence_is_compared_with_bare_and_a_load_with_silence(self):
        silent = result("way, others silent", [20] * 99 + [90], [10] * 99 + [50], phases=1)
        loaded = result("way, noise", [40] * 99 + [180], [30] * 99 + [60], phases=1)
        rows = {row["measure"]: row for row in judge.rows_of([silent, loaded])}
        self.assertEqual(rows["way, others silent, p50"]["ratio"], 2)
        self.assertEqual(rows["way, others silent, p99"]["ratio"], 90 / 50)
        self.assertEqual(rows["way, noise, p99"]["ratio"], 180 / 90)
        self.assertEqual(rows["way, noise, beside bare, p99"]["ratio"], 180 / 60)
        self.assertNotIn("way, noise, p99", judge.scores(rows.values()))
        self.assertIn("way, noise, beside bare, p99", judge.scores(rows.values()))

    def test_without_others_there_is_only_the_bare_one(self):
        rows = judge.rows_of([result("way, alone", [4] * 100, [2] * 100, phases=1)])
        self.assertEqual([(row["measure"], row["ratio"]) for row in rows],
                         [("way, alone, p50", 2), ("way, alone, p99", 2)])

    def test_a_percentile_is_the_median_of_the_phases(self):
        quiet, noisy = [1] * 10, [50] * 10
        rows = judge.rows_of([result("way, alone", quiet * 2 + noisy, quiet * 3, phases=3)])
        self.assertEqual([row["ours"] for row in rows], [1, 1])

    def test_a_latency_without_a_bare_one_is_told(self):
        rows = judge.rows_of([result("way, paced", [1] * 99 + [5], phases=1)])
        self.assertEqual([(row["measure"], row["ours"], row["limit"]) for row in rows],
                         [("way, paced, p50", 1, None), ("way, paced, p99", 5, None)])

    def test_repetitions_of_a_part_are_rounds_and_limits_find_their_part(self):
        def run(name, time, kind="iteration"):
            return {"run_name": name, "run_type": kind, "cpu_time": time}

        results = judge.parts({"benchmarks": [run("a", 2), run("a/limit", 1), run("a", 4),
                                              run("a/limit", 1), run("b", 7),
                                              run("a", 3, "aggregate")]})
        self.assertEqual([(one["measure"], one["ours"], one.get("limit")) for one in results],
                         [("a", [2, 4], [1, 1]), ("b", [7], None)])


class Goals(unittest.TestCase):
    def judged(self, results, goals):
        rows = judge.rows_of(results)
        missing = judge.judge(rows, goals)
        return rows, missing

    def test_met_up_to_the_goal_and_not_beyond(self):
        rows, _ = self.judged([result("a", [20], [10]), result("b", [21], [10])],
                              {"a": 2, "b": 2})
        self.assertEqual([row["met"] for row in rows], [True, False])

    def test_told_without_a_goal(self):
        rows, _ = self.judged([result("a", [20], [10])], {})
        self.assertIsNone(rows[0]["met"])

    def test_a_goal_of_nothing_bounds_the_figure(self):
        rows, _ = self.judged([result("a", [0], [0]), result("b", [1], [0])], {"a": 0, "b": 0})
        self.assertEqual([row["met"] for row in rows], [True, False])

    def test_no_allocation_is_the_goal_everywhere(self):
        rows, _ = self.judged([result("a", [1], [1], allocations=[1])], {})
        self.assertIs(rows[1]["met"], False)

    def test_a_goal_that_nothing_measures_is_named(self):
        _, missing = self.judged([result("a", [1], [1])], {"a": 1, "gone": 1})
        self.assertEqual(missing, ["gone"])

    def test_table_counts_goals_and_shows_the_machine(self):
        rows, _ = self.judged([result("a", [20], [10]), result("b", [20], [10])],
                              {"a": 1, "b": 2})
        text = judge.table(rows, {"machine": "a desk"})
        self.assertIn("machine: a desk", text)
        self.assertIn("1 of 2 goals met", text)


class Regressions(unittest.TestCase):
    def lines(self, ratio_now, stored):
        rows = judge.rows_of([result("a", [ratio_now * 100], [100])])
        return judge.regressions(rows, stored)

    def test_a_third_is_allowed(self):
        self.assertEqual(self.lines(4, {"a": 3}), [])

    def test_more_than_a_third_is_told(self):
        self.assertEqual(self.lines(4.1, {"a": 3}), ["a: was 3, is 4.1"])

    def test_better_is_fine(self):
        self.assertEqual(self.lines(1, {"a": 3}), [])

    def test_missing_and_new_measures_are_told(self):
        self.assertEqual(self.lines(1, {"b": 1}),
                         ["b: not measured any more", "a: new, not stored yet"])

    def test_a_count_that_was_nothing_stays_nothing(self):
        rows = judge.rows_of([result("a", [1], [0])])
        self.assertEqual(judge.regressions(rows, {"a": 0}), ["a: was 0, is 1"])

    def test_a_lucky_latency_is_stored_as_even(self):
        rows = judge.rows_of([result("way, alone", [1] * 100, [2] * 100, phases=1)])
        self.assertEqual(set(judge.scores(rows).values()), {1})
        self.assertEqual(judge.scores(judge.rows_of([result("a", [1], [2])])), {"a": 0.5})

    def test_figures_without_a_limit_are_not_stored(self):
        self.assertEqual(judge.scores(judge.rows_of([result("a", [1])])), {})


class Program(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content):
        with open(self.path(name), "w", encoding="utf-8") as out:
            out.write(content)

    def run_judge(self, results, *more):
        self.write("results", "\n".join(json.dumps(one) for one in results))
        self.write("goals", "{}")
        self.write("about", '{"machine": "a desk"}')
        complaints = io.StringIO()
        with contextlib.redirect_stderr(complaints):
            status = judge.main([
                self.path("results"), "--goals", self.path("goals"), "--about",
                self.path("about"), "--table", self.path("table"), "--document",
                self.path("document"), "--curves", self.path("curves"), "--ratios",
                self.path("ratios"), *more
            ])
        return status, complaints.getvalue()

    def test_stored_ratios_are_checked_by_the_next_run(self):
        self.assertEqual(self.run_judge([result("a", [10], [10])], "--store"), (0, ""))
        self.assertEqual(self.run_judge([result("a", [13], [10])], "--check"), (0, ""))
        status, complaints = self.run_judge([result("a", [14], [10])], "--check")
        self.assertEqual((status, complaints), (1, "bench: a: was 1, is 1.4\n"))

    def test_a_stored_table_stands_in_the_page(self):
        marked = f"{judge.TABLE_BEGIN}\nthe one before\n{judge.TABLE_END}"
        self.write("page", f"before\n{marked}\nafter\n")
        self.run_judge([result("a", [10], [10])], "--page", self.path("page"))
        with open(self.path("page"), encoding="utf-8") as source:
            self.assertIn("the one before", source.read())
        self.run_judge([result("a", [10], [10])], "--page", self.path("page"), "--store")
        with open(self.path("page"), encoding="utf-8") as source:
            page = source.read()
        self.assertNotIn("the one before", page)
        self.assertIn("machine: a desk", page)
        self.assertTrue(page.startswith("before\n") and page.endswith("\nafter\n"))

    def test_document_has_machine_and_rows(self):
        self.run_judge([result("a", [10], [5])])
        with open(self.path("document"), encoding="utf-8") as source:
            document = json.load(source)
        self.assertEqual(document["about"]["machine"], "a desk")
        self.assertEqual(document["rows"][0]["ratio"], 2)

    def test_a_curve_begins_with_the_fastest_and_ends_with_the_slowest(self):
        points = judge.curve_points(3200)
        self.assertEqual((points[0], points[-1]), (0, 3199))
        self.assertLess(len(points), 200)

    def test_curves_fall_from_all_messages_to_the_slowest(self):
        self.run_judge([result("way, alone", [3, 1], [2, 4], phases=1)])
        with open(self.path("curves"), encoding="ascii") as source:
            self.assertEqual(source.read().split("\n\n\n")[0],
                             '"ours, alone"\n1.00 1.000000\n3.00 0.500000')


if __name__ == "__main__":
    unittest.main()
