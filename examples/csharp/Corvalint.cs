// corvalint_wrapper for hosts in C#. One file; copy it into your program.
using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;

namespace Corvalint
{
    /// <summary>The twenty functions, with the types that they need.</summary>
    public static class Native
    {
        // The DLL on Windows, libcorvalint_wrapper.so elsewhere.
        private const string Library = "corvalint_wrapper";
        private const CallingConvention C = CallingConvention.Cdecl;

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern void corvalintServerStart();

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern uint corvalintServerUSBClients();

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern int corvalintServerWiFiClients();

        // One byte: without this attribute four would be read.
        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool corvalintServerScriptActive();

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern int corvalintServerActiveConnections();

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern void initliaze_port_control(long first, long second);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern long corvalintServerGetCountOfSources();

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern long corvalintServerGetCountOfDestinations();

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern int get_unique_id_source(int position);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern int get_unique_id_destination(int position);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern uint get_source_name_length(int id);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern uint get_dest_name_length(int id);

        // A byte, since a char has two bytes here.
        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern byte corvalintServerGetActiveMIDISourceName(int id, int position);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern byte corvalintServerGetActiveMIDIDestName(int id, int position);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern void set_source_status(uint id);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        public static extern void set_destination_status(uint id);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool get_source_status(int id);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool get_destination_status(int id);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool get_source_available(int id);

        [DllImport(Library, CallingConvention = C, ExactSpelling = true)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool get_destination_available(int id);
    }

    /// <summary>The sources or the destinations.</summary>
    public sealed class Side
    {
        private readonly Func<long> count;
        private readonly Func<int, int> idAt;
        private readonly Func<int, uint> nameLength;
        private readonly Func<int, int, byte> nameByte;
        private readonly Action<uint> toggle;
        private readonly Func<int, bool> isOn;
        private readonly Func<int, bool> isAvailable;

        public static readonly Side Sources = new Side(
            Native.corvalintServerGetCountOfSources, Native.get_unique_id_source,
            Native.get_source_name_length, Native.corvalintServerGetActiveMIDISourceName,
            Native.set_source_status, Native.get_source_status, Native.get_source_available);

        public static readonly Side Destinations = new Side(
            Native.corvalintServerGetCountOfDestinations, Native.get_unique_id_destination,
            Native.get_dest_name_length, Native.corvalintServerGetActiveMIDIDestName,
            Native.set_destination_status, Native.get_destination_status,
            Native.get_destination_available);

        private Side(Func<long> count, Func<int, int> idAt, Func<int, uint> nameLength,
                     Func<int, int, byte> nameByte, Action<uint> toggle, Func<int, bool> isOn,
                     Func<int, bool> isAvailable)
        {
            this.count = count;
            this.idAt = idAt;
            this.nameLength = nameLength;
            this.nameByte = nameByte;
            this.toggle = toggle;
            this.isOn = isOn;
            this.isAvailable = isAvailable;
        }

        /// <summary>The ids in list order. A scan may take any number of endpoints out meanwhile,
        /// which shifts the others towards the first position. So the walk goes there from the last
        /// one and misses none, and it asks for the count again right before each position: one
        /// outside the list would end the process.</summary>
        public List<int> Ids()
        {
            var ids = new List<int>();
            for (long position = count() - 1; position >= 0; --position)
            {
                if (position >= count()) continue;
                int id = idAt((int)position);
                if (!ids.Contains(id)) ids.Add(id);
            }
            ids.Reverse();
            return ids;
        }

        /// <summary>Empty if the endpoint has gone.</summary>
        public string Name(int id)
        {
            var bytes = new byte[nameLength(id)];
            if (bytes.Length == 0) return "";
            for (int at = 0; at < bytes.Length; ++at) bytes[at] = nameByte(id, at);
            GCHandle pin = GCHandle.Alloc(bytes, GCHandleType.Pinned);
            try
            {
                // The ANSI code page on Windows, in every version of .NET.
                return Marshal.PtrToStringAnsi(pin.AddrOfPinnedObject(), bytes.Length);
            }
            finally
            {
                pin.Free();
            }
        }

        /// <summary>Makes the library print a word to standard output.</summary>
        public bool IsOn(int id)
        {
            return isOn(id);
        }

        public bool IsAvailable(int id)
        {
            return isAvailable(id);
        }

        /// <summary>True if it is so then. Waits for the driver.</summary>
        public bool Switch(int id, bool on)
        {
            if (isOn(id) != on) toggle(unchecked((uint)id));
            return isOn(id) == on;
        }
    }
}
