// WebSocketImpl.cs - the managed half of mono_socket.h: derives from websocket-sharp's WebSocket and
// passes its events on. The numbers it is given name the owner on the other side.
using System;
using System.Runtime.CompilerServices;
using WebSocketSharp;

namespace Pennywort
{
    public sealed class WebSocketImpl : WebSocket
    {
        private readonly long owner;

        public WebSocketImpl(long owner, string url, string[] protocols) : base(url, protocols)
        {
            this.owner = owner;
            OnOpen += OnOnOpen;
            OnClose += OnOnClose;
            OnMessage += OnOnMessage;
            OnError += OnOnError;
        }

        public static WebSocketImpl Make(long owner, string url)
        {
            return new WebSocketImpl(owner, url, new string[0]);
        }

        // The runtime's own call for this ends the process where nothing has been said before.
        public static string WordsOf(Exception error) { return error.ToString(); }

        // What the other side calls: one object in, the words of an exception or null out.
        public string Begin() { return Attempt(ConnectAsync); }
        public string Leave() { return Attempt(CloseAsync); }
        public string SendText(string text) { return Attempt(() => Send(text)); }
        public string SendBytes(byte[] bytes) { return Attempt(() => Send(bytes)); }
        public string SendOnePing() { return Attempt(() => Ping()); }

        private static string Attempt(Action work)
        {
            try
            {
                work();
                return null;
            }
            catch (Exception error)
            {
                return error.ToString();
            }
        }

        private void OnOnOpen(object sender, EventArgs e) { Opened(owner); }
        private void OnOnClose(object sender, CloseEventArgs e) { Closed(owner, e.Code, e.WasClean); }
        private void OnOnError(object sender, ErrorEventArgs e) { Failed(owner, e.ToString()); }

        private void OnOnMessage(object sender, MessageEventArgs e)
        {
            if (e.IsBinary) Received(owner, e.RawData);
            if (e.IsText) ReceivedText(owner, e.Data);
        }

        [MethodImpl(MethodImplOptions.InternalCall)]
        private static extern void Opened(long owner);
        [MethodImpl(MethodImplOptions.InternalCall)]
        private static extern void Closed(long owner, ushort code, bool wasClean);
        [MethodImpl(MethodImplOptions.InternalCall)]
        private static extern void Failed(long owner, string text);
        [MethodImpl(MethodImplOptions.InternalCall)]
        private static extern void Received(long owner, byte[] bytes);
        [MethodImpl(MethodImplOptions.InternalCall)]
        private static extern void ReceivedText(long owner, string text);
    }
}
