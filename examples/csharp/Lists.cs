// A host in C#: waits for endpoints by name, switches each on and off, and shows the lists.
//
//   Lists.exe [NAME...]
//
// Exit codes: 0, 1 if a name did not appear or could not be switched.
// The library prints to standard output, so this program writes to standard error.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Threading;
using Corvalint;

public static class Lists
{
    // Long enough for a device that was plugged in just now: the lists follow every five seconds.
    private static readonly TimeSpan LongestWait = TimeSpan.FromSeconds(7);

    // And for the first scan: where there are no MIDI devices both lists stay empty.
    private static readonly TimeSpan LongestFirstScan = TimeSpan.FromSeconds(3);

    private static bool WaitUntil(Func<bool> condition, TimeSpan longest)
    {
        Stopwatch time = Stopwatch.StartNew();
        while (!condition())
        {
            if (time.Elapsed > longest) return false;
            Thread.Sleep(50);
        }
        return true;
    }

    private static void Show(string title, Side side)
    {
        foreach (int id in side.Ids())
        {
            Console.Error.WriteLine("{0} {1}: {2}, {3}, {4}", title, id, side.Name(id),
                                    side.IsOn(id) ? "on" : "off",
                                    side.IsAvailable(id) ? "available" : "unavailable");
        }
    }

    // Every endpoint of that name: one device is often a source and a destination.
    private static List<KeyValuePair<Side, int>> Find(string name)
    {
        var found = new List<KeyValuePair<Side, int>>();
        foreach (Side side in new[] { Side.Sources, Side.Destinations })
        {
            foreach (int id in side.Ids())
            {
                if (side.Name(id) == name) found.Add(new KeyValuePair<Side, int>(side, id));
            }
        }
        return found;
    }

    private static bool SwitchOnAndOff(string name)
    {
        if (!WaitUntil(() => Find(name).Count > 0, LongestWait))
        {
            Console.Error.WriteLine("there is no MIDI device {0}", name);
            return false;
        }
        // Once more: a scan may have come between the first list and the second.
        foreach (KeyValuePair<Side, int> found in Find(name))
        {
            foreach (bool on in new[] { true, false })
            {
                if (!found.Key.Switch(found.Value, on))
                {
                    Console.Error.WriteLine("cannot be switched: {0}", name);
                    return false;
                }
                Console.Error.WriteLine("{0}: {1}", on ? "on" : "off", name);
            }
        }
        return true;
    }

    public static int Main(string[] names)
    {
        Native.corvalintServerStart();
        // A scan changes both lists in one moment, so the first that is not empty is whole.
        WaitUntil(() => Native.corvalintServerGetCountOfSources() > 0 ||
                        Native.corvalintServerGetCountOfDestinations() > 0,
                  LongestFirstScan);
        bool allDone = true;
        foreach (string name in names) allDone = SwitchOnAndOff(name) && allDone;
        Show("source", Side.Sources);
        Show("destination", Side.Destinations);
        Console.Error.WriteLine("iOS devices: {0}", Native.corvalintServerUSBClients());
        return allDone ? 0 : 1;
    }
}
