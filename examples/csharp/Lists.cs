// A host in C#: waits for endpoints by name, switches each on and off, and shows the lists.
//
//   Lists.exe [NAME...]
//
// Exit codes: 0, 1 if a name did not appear or could not be switched.
// The library prints to standard output, so this program writes to standard error.
using System;
using System.Diagnostics;
using System.Threading;
using Corvalint;

public static class Lists
{
    // Long enough for a device that was plugged in just now: the lists follow every five seconds.
    private static readonly TimeSpan LongestWait = TimeSpan.FromSeconds(7);

    private static void Show(string title, Side side)
    {
        foreach (int id in side.Ids())
        {
            Console.Error.WriteLine("{0} {1}: {2}, {3}, {4}", title, id, side.Name(id),
                                    side.IsOn(id) ? "on" : "off",
                                    side.IsAvailable(id) ? "available" : "unavailable");
        }
    }

    private static bool SwitchOnAndOff(Side side, string name, ref bool found)
    {
        foreach (int id in side.Ids())
        {
            if (side.Name(id) != name) continue;
            found = true;
            if (!side.Switch(id, true)) return false;
            Console.Error.WriteLine("on: {0}", name);
            if (!side.Switch(id, false)) return false;
            Console.Error.WriteLine("off: {0}", name);
        }
        return true;
    }

    private static bool SwitchOnAndOff(string name)
    {
        Stopwatch time = Stopwatch.StartNew();
        bool found = false;
        while (true)
        {
            bool done = SwitchOnAndOff(Side.Sources, name, ref found) &&
                        SwitchOnAndOff(Side.Destinations, name, ref found);
            if (!done) Console.Error.WriteLine("cannot be switched: {0}", name);
            if (found || !done) return done;
            if (time.Elapsed > LongestWait) break;
            Thread.Sleep(100);
        }
        Console.Error.WriteLine("there is no MIDI device {0}", name);
        return false;
    }

    public static int Main(string[] names)
    {
        Native.corvalintServerStart();
        bool allDone = true;
        foreach (string name in names) allDone = SwitchOnAndOff(name) && allDone;
        Show("source", Side.Sources);
        Show("destination", Side.Destinations);
        Console.Error.WriteLine("iOS devices: {0}", Native.corvalintServerUSBClients());
        return allDone ? 0 : 1;
    }
}
